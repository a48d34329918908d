#!/usr/bin/perl
# Writes the rows of the Unicode property table, as C++ initialisers, from the Unicode character database:
#
#     perl unicode_rows.pl UnicodeData.txt > unicode_rows.inc
#
# A row stands for a run of code points from U+0080 on whose case property and general category are equal. What the
# two words of a row mean stands in unicode_table.cpp. Only the simple case mappings enter, so a character maps to one
# character. Where both mappings exist and differ (the title-case digraphs), the lower case wins.
use strict;
use warnings;

use constant {
    FIRST       => 0x80,
    LAST        => 0x10FFFF,
    KIND_UPPER  => 0x20000000,
    KIND_LOWER  => 0x40000000,
    KIND_PAIRS  => 0x60000000,
    CLASS_SHIFT => 24,
    MASK_LIMIT  => 0xFFFFFF,
};

# The general categories in the order of their numbers; LC is that of pair runs, which mix Lu and Ll.
my @categories = qw(Cn Lu Ll Lt LC Lm Lo Mn Mc Me Nd Nl No Pc Pd Ps Pe Pi Pf Po Sm Sc Sk So Zs Zl Zp Cc Cf Cs Co);
my %number;
@number{@categories} = 0 .. $#categories;

my (@category, %upper, %lower);

sub read_database {
    my $range_start;
    while (<>) {
        chomp;
        my ($code, $name, $category, $upper, $lower) = (split /;/, $_, -1)[0, 1, 2, 12, 13];
        die "unexpected line $.: $_\n" unless defined $lower && exists $number{$category};
        $code = hex $code;
        $range_start = $name =~ /, First>$/ ? $code : $range_start;
        my $from = $name =~ /, Last>$/ ? $range_start : $code;
        $category[$_] = $category for $from .. $code;
        $upper{$code} = hex $upper if $upper ne '';
        $lower{$code} = hex $lower if $lower ne '';
    }
}

# The bytes of the code point's UTF-8 form, packed big-endian.
sub key_of {
    my ($code) = @_;
    return $code if $code < 0x80;
    return 0xC080 | ($code & 0x7C0) << 2 | $code & 0x3F if $code < 0x800;
    return 0xE08080 | ($code & 0xF000) << 4 | ($code & 0xFC0) << 2 | $code & 0x3F if $code < 0x10000;
    return 0xF0808080 | ($code & 0x1C0000) << 6 | ($code & 0x3F000) << 4 | ($code & 0xFC0) << 2 | $code & 0x3F;
}

sub mask_of {
    my ($code, $other) = @_;
    my $mask = key_of($code) ^ key_of($other);
    die sprintf("no mask leads from U+%04X to U+%04X\n", $code, $other) if $mask > MASK_LIMIT;
    return $mask;
}

# Whether an even code point is an upper case whose lower case is the next one, and the only one to lead back.
sub heads_pair {
    my ($code) = @_;
    my $next = $code + 1;
    return $code % 2 == 0
        && ($lower{$code} // 0) == $next
        && ($upper{$next} // 0) == $code
        && !exists $upper{$code}
        && !exists $lower{$next};
}

sub attributes_of {
    my ($code) = @_;
    return KIND_PAIRS | $number{LC} << CLASS_SHIFT if heads_pair($code & ~1);
    my $class = $number{$category[$code] // 'Cn'} << CLASS_SHIFT;
    return KIND_UPPER | $class | mask_of($code, $lower{$code}) if exists $lower{$code};
    return KIND_LOWER | $class | mask_of($code, $upper{$code}) if exists $upper{$code};
    return $class;
}

read_database();
my $previous = -1;
for my $code (FIRST .. LAST) {
    my $attributes = attributes_of($code);
    printf "{0x%08X, 0x%08X},\n", key_of($code), $attributes if $attributes != $previous;
    $previous = $attributes;
}
