#!/usr/bin/env perl
# embed_page.pl SHA256 LIBRARY STYLE BODY SCRIPT...
#
# Prints the page of the report as two C++ strings, what stands before its data and what stands behind. LIBRARY is the
# chart library, whose hash is SHA256. The page may run these scripts alone, by their hash, and load nothing.
use strict;
use warnings;
use Digest::SHA qw(sha256_base64 sha256_hex);

sub contents {
    my ($path) = @_;
    open(my $file, '<:raw', $path) or die "$path: $!\n";
    local $/;
    return scalar <$file>;
}

# Digest::SHA leaves out the padding, without which a browser does not know the hash.
sub padded { my ($hash) = @_; return $hash . '=' x (-length($hash) % 4) }

sub literal {
    my ($name, $text) = @_;
    my $code = "constexpr std::string_view $name =\n";
    # In pieces: a compiler need not take a logical line of more than 65,536 characters (C++ standard, Annex B). GCC joins
    # any number of pieces.
    for my $line ($text =~ /(.{1,100})/gs) {
        $line =~ s/(["\\?])/\\$1/g;
        $line =~ s/\n/\\n/g;
        $line =~ s/([^\x20-\x7E])/sprintf('\\%03o', ord $1)/ge;
        $code .= "    \"$line\"\n";
    }
    return "$code    ;\n";
}

my ($wanted, $library_path, $style_path, $body_path, @script_paths) = @ARGV;
my $library = contents($library_path);
sha256_hex($library) eq $wanted
    or die "$library_path is not the version that was tested: its SHA-256 is " . sha256_hex($library) . "\n";
# Else a browser whose tools are open looks for a file beside the page.
$library =~ s{//# sourceMappingURL=.*}{};
my $script = join("\n", $library, map { contents($_) } @script_paths);
die "a script holds the end of its element\n" if $script =~ m{</script}i;

my $policy = "default-src 'none'; style-src 'unsafe-inline'; script-src 'sha256-" . padded(sha256_base64($script)) . "'";
my $head = <<"END" . contents($body_path) . '<script type="application/json" id="data">';
<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="$policy">
<title>Registry events</title>
<style>
@{[contents($style_path)]}</style>
END
print literal('kPageHead', $head), "\n", literal('kPageTail', "</script>\n<script>$script</script>\n</html>\n");
