# Sourced by the tests of orvi-stream: TEST.sh PROGRAM ODD-PUBLISHER SOURCES CASE
# Each case has a folder of its own for files and for the sockets of its processes.
# shellcheck shell=bash disable=SC2034 # used by the tests
set -euo pipefail

program=$1
oddPublisher=$2
sources=$3
case=$4

# Paths of sockets must be short, wherever the build is.
work=$(mktemp --directory --tmpdir orvi-stream.XXXXXX)
runtime=$work/run
processes=()

cleanUp() {
    local status=$? process
    for process in "${processes[@]}"; do kill -KILL "$process" 2>/dev/null || true; done
    rm -rf "$work"
    exit "$status"
}
trap cleanUp EXIT

fail() {
    echo "$*" >&2
    for file in "$work"/*.err; do
        [[ ! -s $file ]] || sed "s|^|$(basename "$file"): |" "$file" >&2
    done
    exit 1
}

# Fails with both texts when they differ.
expectSame() {
    local what=$1 expected=$2 actual=$3
    diff --unified <(echo "$expected") <(echo "$actual") || fail "$what: unexpected, see above"
}

expectSameFile() {
    cmp "$1" "$2" || fail "$1 and $2 differ"
}

# Runs a command in the foreground: expectStatus CODE COMMAND...; what it says is in said.err.
expectStatus() {
    local expected=$1 status=0
    shift
    "$@" 2>"$work/said.err" || status=$?
    [[ $status == "$expected" ]] || fail "$* ended with $status, not $expected"
}

# Expects a text in what the command before has said.
expectSaid() {
    grep --quiet --fixed-strings -e "$1" "$work/${2:-said}.err" || fail "Nothing was said about: $1"
}

expectSilence() {
    [[ ! -s $work/said.err ]] || fail "Something was said"
}

# Runs a command of the program against the processes of this case.
stream() {
    "$program" "$1" --runtime-dir "$runtime" "${@:2}"
}

# Runs a command that must not go on for ever.
inTime() {
    timeout --signal=KILL 60 "$@"
}

# Starts a process whose first lines of output are UUIDs, and waits for them:
# start COUNT COMMAND... Sets `publisher` and `uuids`; `uuid` is the first of them. More of its output
# can be read from `published`.
start() {
    local count=$1 line
    shift
    exec {published}< <(exec "$@" 2>"$work/publisher.err")
    publisher=$!
    processes+=("$publisher")
    uuids=()
    while ((count-- > 0)); do
        read -r line <&"$published" || fail "The publisher ended too early"
        uuids+=("$line")
    done
    uuid=${uuids[0]}
}

# Publishes one stream: publishOne ARGUMENT...
publishOne() {
    start 1 "$program" publish --runtime-dir "$runtime" "$@"
}

# Ends the publisher by a signal and expects an exit code: endPublisher SIGNAL CODE
endPublisher() {
    local status=0
    kill -"$1" "$publisher"
    wait "$publisher" || status=$?
    [[ $status == "$2" ]] || fail "The publisher ended with $status, not $2"
}

# Makes a file of so many bytes that do not repeat.
makeFile() {
    head --bytes "$2" /dev/urandom >"$1"
}

# The part of a file that begins at an offset and has at most so many bytes.
part() {
    tail --bytes "+$(($2 + 1))" "$1" | { head --bytes "$3" && cat >/dev/null; }
}
