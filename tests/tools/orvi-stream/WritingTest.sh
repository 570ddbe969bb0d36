#!/usr/bin/env bash
# Writing with orvi-stream.
# shellcheck disable=SC2154 # set by Support.sh
# shellcheck source=/dev/null
source "$(dirname "${BASH_SOURCE[0]}")/Support.sh" "$@"

WritesAFileThatWasMissing() {
    makeFile "$work/source" 3145745
    publishOne --write "$work/file"
    expectStatus 0 stream put "$uuid" <"$work/source"
    expectSilence
    expectSameFile "$work/source" "$work/file"
}

WritesWhatComesThroughAPipe() {
    makeFile "$work/source" 300001
    publishOne --write "$work/file"
    head --bytes 1M "$work/source" | expectStatus 0 stream put --buffer-size 70000 "$uuid"
    expectSameFile "$work/source" "$work/file"
}

WritesAcrossBuffersAndKeepsTheRest() {
    local offset count
    publishOne --write --buffer-size 1000 "$work/file"
    for offset in 0 1 999 1000 1001; do
        for count in 0 1 999 1000 1001 2001; do
            makeFile "$work/file.new" 2500
            cat "$work/file.new" >"$work/file"
            makeFile "$work/source" "$count"
            dd if="$work/source" of="$work/file.new" bs=1 seek="$offset" conv=notrunc status=none
            expectStatus 0 stream put --offset "$offset" "$uuid" <"$work/source"
            expectSameFile "$work/file.new" "$work/file"
        done
    done
}

WritesInPiecesOfAnySize() {
    local size
    makeFile "$work/source" 200001
    publishOne --write --buffer-size 4096 "$work/file"
    for size in 1000 4096 5000 8192 1M; do
        : >"$work/file"
        expectStatus 0 stream put --buffer-size "$size" "$uuid" <"$work/source"
        expectSameFile "$work/source" "$work/file"
    done
}

HandsOverWhatArrives() {
    local input text
    mkfifo "$work/pipe"
    exec {input}<>"$work/pipe"
    publishOne --write "$work/file"
    "$program" put --runtime-dir "$runtime" "$uuid" <"$work/pipe" 2>"$work/said.err" &
    processes+=($!)
    for text in one two three; do
        printf '%s' "$text" >&"$input"
        until grep --quiet "$text" "$work/file"; do :; done
    done
}

ReadsWhatWasWritten() {
    publishOne --write "$work/file"
    printf 'some text' | expectStatus 0 stream put "$uuid"
    printf 'more' | expectStatus 0 stream put --offset 5 "$uuid"
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSame "The file" "some more" "$(cat "$work/copy")"
}

FailsWithoutAStandardInput() {
    publishOne --write "$work/file"
    expectStatus 1 inTime "$program" put --runtime-dir "$runtime" "$uuid" <&-
    expectSaid "the standard input is closed"
    [[ ! -s $work/file ]] || fail "Something was written"
}

RefusesWhatIsNotPublishedForWriting() {
    makeFile "$work/file" 10
    cp "$work/file" "$work/before"
    publishOne "$work/file"
    printf 'x' | expectStatus 4 stream put "$uuid"
    expectSaid "not published for writing"
    expectSameFile "$work/before" "$work/file"
}

LetsSomePeersReadOnly() {
    printf 'before' >"$work/file"
    publishOne --write --read-only 'uid:*' "$work/file"
    printf 'x' | expectStatus 4 stream put "$uuid"
    [[ -s $work/said.err ]] || fail "Nothing was said"
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSame "The file" before "$(cat "$work/copy")"
}

LetsOnlySomePeersIn() {
    printf 'before' >"$work/file"
    publishOne --allow 'dns:*' "$work/file"
    expectStatus 4 stream cat "$uuid" >"$work/copy"
    [[ ! -s $work/copy ]] || fail "Something was read"
    publishOne --allow "uid:$UID" "$work/file"
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSameFile "$work/file" "$work/copy"
}

FailsWhenTheFileTakesNoMore() {
    publishOne --write /dev/full
    printf 'something' | expectStatus 1 stream put "$uuid"
    expectSaid "did not take the 9 bytes that follow the first 0"
    expectSaid "No space left on device" publisher
}

FailsWhenTheStreamTakesAPart() {
    start 1 "$oddPublisher" "$runtime" half-writing
    truncate --size 300000 "$work/source"
    expectStatus 1 stream put "$uuid" <"$work/source"
    expectSaid "did not take"
    printf 'something' | expectStatus 1 stream put "$uuid"
    expectSaid "did not take the 9 bytes that follow the first 0"
}

RefusesAnOffsetWhereTheStreamCannotSeek() {
    start 1 "$oddPublisher" "$runtime" write-only
    printf 'x' | expectStatus 1 stream put --offset 0 "$uuid"
    expectSaid "does not move to offset 0"
    printf 'x' | expectStatus 0 stream put "$uuid"
}

FailsWhenThePublisherIsKilled() {
    local writer status=0
    publishOne --write "$work/file"
    exec {input}> >(exec "$program" put --runtime-dir "$runtime" "$uuid" 2>"$work/said.err")
    writer=$!
    printf 'something' >&"$input"
    until [[ -s $work/file ]]; do :; done
    kill -KILL "$publisher"
    printf 'more' >&"$input"
    wait "$writer" || status=$?
    expectSame "Exit code" 5 "$status"
    expectSaid "has terminated"
}

ShowsProgressOnATerminal() {
    truncate --size 1G "$work/source"
    publishOne --write /dev/null
    script --quiet --return --command \
        "'$program' put --runtime-dir '$runtime' $uuid <'$work/source'" "$work/seen" >/dev/null
    grep --quiet --extended-regexp '1\.0 GiB of 1\.0 GiB  100 %  [0-9.]+ .iB/s  in 0:' "$work/seen" ||
        fail "No progress was shown: $(cat -v "$work/seen")"
}

"$case"
