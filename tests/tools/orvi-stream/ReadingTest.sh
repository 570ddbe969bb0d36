#!/usr/bin/env bash
# Reading with orvi-stream.
# shellcheck disable=SC2154 # set by Support.sh
# shellcheck source=/dev/null
source "$(dirname "${BASH_SOURCE[0]}")/Support.sh" "$@"

CopiesAFile() {
    makeFile "$work/file" 3145745
    publishOne "$work/file"
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSilence
    expectSameFile "$work/file" "$work/copy"
}

CopiesAnEmptyFile() {
    : >"$work/file"
    publishOne "$work/file"
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSilence
    expectSameFile "$work/file" "$work/copy"
}

CopiesRangesAcrossBuffers() {
    local offset count
    makeFile "$work/file" 2500
    publishOne --buffer-size 1000 "$work/file"
    for offset in 0 1 999 1000 1001 2001; do
        for count in 0 1 999 1000 1001 2001; do
            part "$work/file" "$offset" "$count" >"$work/expected"
            expectStatus 0 stream cat --offset "$offset" --count "$count" "$uuid" >"$work/copy"
            expectSameFile "$work/expected" "$work/copy"
        done
    done
}

CopiesTheRestWithoutACount() {
    makeFile "$work/file" 2500
    publishOne --buffer-size 1000 "$work/file"
    expectStatus 0 stream cat --offset 1001 "$uuid" >"$work/copy"
    expectSameFile <(part "$work/file" 1001 2500) "$work/copy"
}

CopiesNothingFromBehindTheEnd() {
    makeFile "$work/file" 2500
    publishOne "$work/file"
    for offset in 2500 2501 9223372036854775807; do
        expectStatus 0 stream cat --offset "$offset" "$uuid" >"$work/copy"
        expectSilence
        [[ ! -s $work/copy ]] || fail "There is something behind the end"
    done
}

CopiesThroughBuffersOfAnySize() {
    local atTheStream atTheReader
    makeFile "$work/file" 200001
    for atTheStream in 1 4K 1M; do
        publishOne --buffer-size "$atTheStream" "$work/file"
        for atTheReader in 999 4096 300000; do
            expectStatus 0 stream cat --buffer-size "$atTheReader" "$uuid" >"$work/copy"
            expectSameFile "$work/file" "$work/copy"
        done
        endPublisher TERM 143
    done
}

UnderstandsUnits() {
    makeFile "$work/file" 3000000
    publishOne "$work/file"
    expectStatus 0 stream cat --offset 1M --count 2KiB "$uuid" >"$work/copy"
    expectSameFile <(part "$work/file" 1048576 2048) "$work/copy"
}

ServesManyReadersAtOnce() {
    local readers=() reader
    makeFile "$work/file" 20000001
    publishOne "$work/file"
    for reader in 1 2 3 4; do
        stream cat --buffer-size 100000 "$uuid" >"$work/copy$reader" &
        readers+=($!)
    done
    for reader in 1 2 3 4; do
        wait "${readers[reader - 1]}" || fail "Reader $reader failed"
        expectSameFile "$work/file" "$work/copy$reader"
    done
}

CopiesTheStandardInputOnce() {
    makeFile "$work/file" 300001
    publishOne - <"$work/file"
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSameFile "$work/file" "$work/copy"
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    [[ ! -s $work/copy ]] || fail "The input was read twice"
}

CountsWhereTheStreamCannotSeek() {
    publishOne - < <(printf 'abcdefghij')
    expectStatus 0 stream cat --count 4 "$uuid" >"$work/copy"
    expectSame "The first characters" abcd "$(cat "$work/copy")"
}

RefusesAnOffsetWhereTheStreamCannotSeek() {
    publishOne - < <(printf 'abcdefghij')
    expectStatus 1 stream cat --offset 4 "$uuid" >"$work/copy"
    expectSaid "does not move to offset 4"
    [[ ! -s $work/copy ]] || fail "Something was read"
}

RefusesAnOffsetWhereTheDeviceDoesNotMove() {
    start 1 "$oddPublisher" "$runtime" unmovable
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSame "Everything" "unmovable" "$(cat "$work/copy")"
    expectStatus 1 stream cat --offset 4 "$uuid" >"$work/copy"
    expectSaid "does not move to offset 4"
}

PassesOnWhatArrivesInAPipe() {
    local input output line
    mkfifo "$work/pipe"
    exec {input}<>"$work/pipe"
    publishOne --live - <"$work/pipe"
    exec {output}< <(exec "$program" cat --runtime-dir "$runtime" "$uuid" 2>"$work/said.err")
    for text in one two three; do
        echo "$text" >&"$input"
        read -r line <&"$output"
        expectSame "The next line" "$text" "$line"
    done
}

ServesANamedPipe() {
    makeFile "$work/file" 300001
    mkfifo "$work/pipe"
    publishOne "$work/pipe"
    cat "$work/file" >"$work/pipe" &
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSameFile "$work/file" "$work/copy"
}

EndsWellWhenTheReaderHasEnough() {
    local statuses
    truncate --size 1G "$work/file"
    publishOne "$work/file"
    set +e
    stream cat "$uuid" 2>"$work/said.err" | head --bytes 10 >"$work/copy"
    statuses="${PIPESTATUS[*]}"
    set -e
    expectSame "Exit codes" "0 0" "$statuses"
    expectSilence
    expectSame "Bytes" 10 "$(stat --format %s "$work/copy")"
}

FailsWhenTheOutputIsFull() {
    makeFile "$work/file" 10
    publishOne "$work/file"
    expectStatus 1 stream cat "$uuid" >/dev/full
    expectSaid "No space left on device"
}

FailsWithoutAStandardOutput() {
    makeFile "$work/file" 10
    publishOne "$work/file"
    expectStatus 1 inTime "$program" cat --runtime-dir "$runtime" "$uuid" >&-
    expectSaid "cannot write the standard output: Bad file descriptor"
}

FailsWhenTheDataEndTooEarly() {
    start 1 "$oddPublisher" "$runtime" short
    expectStatus 1 stream cat "$uuid" >"$work/copy"
    expectSaid "ended after 10 bytes of 1000"
    expectStatus 0 stream cat --count 10 "$uuid" >"$work/copy"
    expectStatus 1 stream cat --offset 980 --count 15 "$uuid" >"$work/copy"
    expectSaid "ended after 10 bytes of 15"
}

RefusesWhatIsNotPublishedForReading() {
    start 1 "$oddPublisher" "$runtime" write-only
    expectStatus 4 stream cat "$uuid"
    expectSaid "not published for reading"
}

# Reads a mebibyte of a stream that has much more, ends the publisher by a signal in the middle,
# and reads on. Sets `copied` and the reader's `status`.
losePublisher() {
    local output reader
    truncate --size 100G "$work/file"
    publishOne "$work/file"
    exec {output}< <(exec "$program" cat --runtime-dir "$runtime" "$uuid" 2>"$work/said.err")
    reader=$!
    copied=$(head --bytes 1M <&"$output" | wc --bytes)
    kill -"$1" "$publisher"
    copied=$((copied + $(wc --bytes <&"$output")))
    status=0
    wait "$reader" || status=$?
}

FailsWhenThePublisherIsKilled() {
    losePublisher KILL
    expectSame "Exit code" 5 "$status"
    expectSaid "has terminated"
    ((copied >= 1048576 && copied < 107374182400)) || fail "$copied bytes were copied"
}

FailsWhenThePublisherEnds() {
    losePublisher TERM
    expectSame "Exit code" 5 "$status"
    [[ -s $work/said.err ]] || fail "Nothing was said"
    ((copied >= 1048576 && copied < 107374182400)) || fail "$copied bytes were copied"
}

EndsOnASignal() {
    local signal reader status
    mkfifo "$work/pipe"
    exec {input}<>"$work/pipe"
    for signal in INT TERM; do
        # The read that waits takes what comes next, whether its reader is there or not.
        publishOne --live - <"$work/pipe"
        exec {output}< <(exec "$program" cat --runtime-dir "$runtime" "$uuid" 2>"$work/said.err")
        reader=$!
        echo "something" >&"$input"
        read -r _ <&"$output"
        kill -"$signal" "$reader"
        status=0
        wait "$reader" || status=$?
        expectSame "Exit code" "$((128 + $(kill -l "$signal")))" "$status"
        endPublisher TERM 143
    done
}

ShowsProgressOnATerminal() {
    truncate --size 512M "$work/file"
    publishOne "$work/file"
    script --quiet --return --command \
        "'$program' cat --runtime-dir '$runtime' $uuid >/dev/null" "$work/seen" >/dev/null </dev/null
    grep --quiet --extended-regexp '512\.0 MiB of 512\.0 MiB  100 %  [0-9.]+ .iB/s  in [0-9]+:' "$work/seen" ||
        fail "No progress was shown: $(cat -v "$work/seen")"
}

ShowsTheTimeThatIsLeft() {
    local input reader
    mkfifo "$work/pipe"
    exec {input}<>"$work/pipe"
    publishOne --live - <"$work/pipe"
    : >"$work/seen"
    script --quiet --flush --return --command \
        "'$program' cat --runtime-dir '$runtime' --count 50M $uuid >/dev/null" "$work/seen" \
        >/dev/null </dev/null &
    reader=$!
    until grep --quiet --extended-regexp \
        'B of 50\.0 MiB  [0-9]+ %  [0-9.]+ ([KMG]i)?B/s  ([0-9]+:)?[0-9]+:[0-9]{2} left' "$work/seen"; do
        # Once the reader has ended, the pipe stays full.
        dd if=/dev/zero bs=50000 count=1 oflag=nonblock status=none >&"$input" 2>/dev/null || true
        kill -0 "$reader" || fail "It ended: $(cat -v "$work/seen")"
    done
    kill -KILL "$publisher"
    wait "$reader" || true
}

ShowsNoProgressWithoutATerminal() {
    truncate --size 1G "$work/file"
    publishOne "$work/file"
    expectStatus 0 stream cat "$uuid" >/dev/null
    expectSilence
}

ShowsNoProgressWhereTheDataGo() {
    truncate --size 300M "$work/file"
    publishOne "$work/file"
    script --quiet --return --command \
        "'$program' cat --runtime-dir '$runtime' $uuid" /dev/null </dev/null >"$work/seen"
    ! grep --quiet --binary-files=text 'MiB' "$work/seen" || fail "Progress is among the data"
}

"$case"
