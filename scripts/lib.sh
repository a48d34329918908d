# What the scripts of this tree share. Sourced, not run.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build
# Some runners of continuous integration set no home directory, and CMake asks for it too.
export HOME=${HOME:-$(getent passwd "$EUID" | cut -d: -f6)}
# Everything that is fetched or cross-built, outside the tree, so that every checkout shares it.
deps_cache=${XDG_CACHE_HOME:-$HOME/.cache}/velmox-deps

# All messages go to standard error: the standard output of a script belongs to what it runs.
say() { printf '%s\n' "$*" >&2; }
die() {
    say "${0##*/}: $*"
    exit 1
}

# step TEXT LOG COMMAND...
# Runs a command that may take long: its output goes to LOG, and every ten seconds a line tells the time taken and the
# last line of LOG. A command that fails has the end of LOG shown, and ends the script.
step() {
    local text=$1 log=$2 started=$SECONDS result ticker
    shift 2
    mkdir -p "$(dirname "$log")"
    : >"$log"
    say "$text"
    # It ends with the script however that ends, and its sleep must not keep anyone's pipe open.
    while sleep 10 >/dev/null 2>&1 && kill -0 $$ 2>/dev/null; do
        say "  $((SECONDS - started)) s  $(tail -n 1 "$log" | cut -c 1-90)"
    done >/dev/null &
    ticker=$!
    # In a shell of its own, outside any condition: there alone does the first failing command of a function end it.
    set +e
    (set -e && "$@") >>"$log" 2>&1 </dev/null
    result=$?
    set -e
    kill "$ticker" 2>/dev/null || true
    wait "$ticker" 2>/dev/null || true
    if ((result != 0)); then
        tail -n 60 "$log" >&2
        die "failed: $text (all of its output: $log)"
    fi
}

# locked FILE COMMAND...: runs a command while holding the lock of that name, and says when it has to wait for it.
locked() {
    local file=$1 lock
    shift
    mkdir -p "$(dirname "$file")"
    exec {lock}>"$file"
    if ! flock --nonblock "$lock"; then
        say "waiting for another run that holds $file"
        flock "$lock"
    fi
    "$@" {lock}>&-
    exec {lock}>&-
}
