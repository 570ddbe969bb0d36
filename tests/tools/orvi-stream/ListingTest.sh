#!/usr/bin/env bash
# Listing and looking for streams with orvi-stream.
# shellcheck disable=SC2154 # set by Support.sh
# shellcheck source=/dev/null
source "$(dirname "${BASH_SOURCE[0]}")/Support.sh" "$@"

missing=00112233-4455-6677-8899-aabbccddeeff

# Evaluates an expression in Python, in which `value` is the JSON in a file: inJson FILE EXPRESSION
inJson() {
    python3 -c 'import json, sys
value = json.load(open(sys.argv[1]))
print(eval(sys.argv[2]))' "$1" "$2"
}

ListsNothing() {
    expectStatus 0 stream ls >"$work/list"
    expectSilence
    expectSame "Lines" 1 "$(wc --lines <"$work/list")"
    expectStatus 0 stream ls --json >"$work/list"
    expectSame "JSON" "[]" "$(cat "$work/list")"
}

ListsWhatEachProcessPublishes() {
    local first second third
    makeFile "$work/file" 100
    publishOne "$work/file"
    first=$uuid
    publishOne --write --buffer-size 1000 "$work/file"
    second=$uuid
    publishOne - </dev/null
    third=$uuid
    expectStatus 0 stream ls >"$work/list"
    expectSilence
    expectSame "The heading" "UUID DIRECTION SEEK BUFFER ENDPOINT" \
        "$(head --lines 1 "$work/list" | xargs)"
    expectSame "The streams" \
        "$(printf '%s\n' "$first read yes 65536" "$second read-write yes 1000" \
            "$third read no 65536" | sort)" \
        "$(tail --lines +2 "$work/list" | awk '{print $1, $2, $3, $4}' | sort)"
    expectSame "Endpoints" 3 "$(tail --lines +2 "$work/list" | awk '{print $5}' | sort -u | wc -l)"
}

ListsAsJson() {
    makeFile "$work/file" 100
    publishOne --write --buffer-size 1000 "$work/file"
    expectStatus 0 stream ls --json >"$work/list"
    expectSame "The names" \
        "['address', 'bufferSize', 'direction', 'endpoint', 'read', 'seekable', 'uuid', 'write']" \
        "$(inJson "$work/list" 'sorted(value[0])')"
    expectSame "The stream" "$uuid read-write True True True 1000" \
        "$(inJson "$work/list" '" ".join(str(value[0][name]) for name in
            ["uuid", "direction", "read", "write", "seekable", "bufferSize"])')"
    expectSame "The address" "True" \
        "$(inJson "$work/list" 'value[0]["address"].startswith("unix:'"$runtime"'/")')"
}

# Reads the next line of what is watched into `line`.
nextLine() {
    read -r line <&"$output" || fail "Nothing more was said"
}

WatchTellsWhatComesAndGoes() {
    local line
    makeFile "$work/file" 100
    exec {output}< <(exec "$program" ls --watch --runtime-dir "$runtime" 2>"$work/said.err")
    local watcher=$!
    processes+=("$watcher")
    local watched=$output
    nextLine
    expectSame "The heading" "UUID" "${line%% *}"
    publishOne "$work/file"
    output=$watched
    nextLine
    expectSame "What came" "+ $uuid read yes 65536" "$(awk '{print $1, $2, $3, $4, $5}' <<<"$line")"
    kill -KILL "$publisher"
    nextLine
    expectSame "What went" "- $uuid read yes 65536" "$(awk '{print $1, $2, $3, $4, $5}' <<<"$line")"
    publishOne - </dev/null
    output=$watched
    nextLine
    expectSame "What came" "+ $uuid read no 65536" "$(awk '{print $1, $2, $3, $4, $5}' <<<"$line")"
    endPublisher TERM 143
    nextLine
    expectSame "What went" "- $uuid" "$(awk '{print $1, $2}' <<<"$line")"
    kill -TERM "$watcher"
    local status=0
    wait "$watcher" || status=$?
    expectSame "Exit code" 143 "$status"
}

WatchesAsJson() {
    local line event
    makeFile "$work/file" 100
    publishOne "$work/file"
    exec {output}< <(exec "$program" ls --watch --json --runtime-dir "$runtime")
    processes+=($!)
    for event in added removed; do
        nextLine
        echo "$line" >"$work/line"
        expectSame "The event" "$event $uuid" \
            "$(inJson "$work/line" 'value["event"] + " " + value["uuid"]')"
        kill -KILL "$publisher" 2>/dev/null || true
    done
}

EndsWellWhenItsReaderHasEnough() {
    makeFile "$work/file" 100
    publishOne "$work/file"
    local first=$publisher
    exec {output}< <("$program" ls --watch --json --runtime-dir "$runtime" 2>"$work/said.err"
        echo "$?" >"$work/status")
    local watcher=$!
    local line
    nextLine
    exec {output}<&-
    kill -KILL "$first"
    wait "$watcher"
    expectSame "Exit code" 0 "$(cat "$work/status")"
    expectSilence
}

TellsWhenAnEndpointIsSilent() {
    makeFile "$work/file" 100
    publishOne "$work/file"
    local silent=$publisher
    kill -STOP "$silent"
    publishOne "$work/file"
    expectStatus 5 stream ls --timeout 1 >"$work/list"
    kill -CONT "$silent"
    expectSaid "$runtime"
    expectSaid "the list is not complete"
    expectSame "What answered" "$uuid" "$(awk 'NR > 1 {print $1}' "$work/list")"
}

StatTellsAboutAFile() {
    makeFile "$work/file" 2048
    publishOne --write "$work/file"
    expectStatus 0 stream stat "$uuid" >"$work/said"
    expectSilence
    expectSame "The facts" \
        "$(printf '%s\n' "UUID $uuid" "Direction read-write" "Seekable yes" "Buffer size 65536" \
            "Size 2048 (2.0 KiB)")" \
        "$(head --lines 5 "$work/said" | tr --squeeze-repeats ' ')"
    expectStatus 0 stream stat --json "$uuid" >"$work/json"
    expectSame "As JSON" "$uuid 2048" \
        "$(inJson "$work/json" 'value["uuid"] + " " + str(value["size"])')"
}

StatTellsAboutAPipe() {
    publishOne - </dev/null
    expectStatus 0 stream stat "$uuid" >"$work/said"
    expectSame "The facts" "Direction read Seekable no Buffer size 65536 Size unknown" \
        "$(sed --quiet 2,5p "$work/said" | xargs)"
    expectStatus 0 stream stat --json "$uuid" >"$work/json"
    expectSame "As JSON" "None False" \
        "$(inJson "$work/json" 'str(value["size"]) + " " + str(value["seekable"])')"
}

StatTellsAboutADeviceThatIsOnlyWritten() {
    start 1 "$oddPublisher" "$runtime" write-only
    expectStatus 0 stream stat "$uuid" >"$work/said"
    expectSame "The facts" "Direction write Seekable no Buffer size 1024 Size unknown" \
        "$(sed --quiet 2,5p "$work/said" | xargs)"
}

MissesAStream() {
    local command
    makeFile "$work/file" 100
    publishOne "$work/file"
    for command in stat cat put; do
        expectStatus 3 stream "$command" --timeout 1 "$missing" </dev/null >"$work/copy"
        expectSaid "no stream $missing was found within 1 s"
        expectStatus 3 stream "$command" --timeout 0 "$missing" </dev/null >"$work/copy"
        expectSaid "no stream $missing was found"
        [[ ! -s $work/copy ]] || fail "Something was printed"
    done
    ((SECONDS < 15)) || fail "Waited for $SECONDS s"
}

FindsAStreamAtOnceThatIsThere() {
    makeFile "$work/file" 100
    publishOne "$work/file"
    expectStatus 0 stream cat --timeout 0 "$uuid" >"$work/copy"
    expectSameFile "$work/file" "$work/copy"
}

WaitsForAStream() {
    makeFile "$work/file" 100
    exec {output}< <(exec "$program" cat --runtime-dir "$runtime" "$missing" 2>"$work/said.err")
    local reader=$! watched=$output
    publishOne --uuid "$missing" "$work/file"
    cat <&"$watched" >"$work/copy"
    wait "$reader" || fail "The reader failed"
    expectSameFile "$work/file" "$work/copy"
}

CannotMissAStreamWhereNobodyAnswers() {
    expectStatus 5 stream stat --timeout 0.5 --plain-loopback --connect 127.0.0.1:1 "$missing"
    expectSaid "127.0.0.1:1: "
}

CannotMissAStreamWhereAnEndpointIsSilent() {
    makeFile "$work/file" 100
    publishOne "$work/file"
    kill -STOP "$publisher"
    expectStatus 5 stream stat --timeout 0.5 "$uuid"
    expectSaid "$runtime"
}

RefusesWhatMakesNoSense() {
    expectStatus 2 "$program"
    expectSaid "A command is required"
    expectStatus 2 "$program" dance
    expectStatus 2 stream ls --dance
    expectStatus 2 stream ls cat
    expectStatus 2 stream cat
    expectStatus 2 stream cat nonsense
    expectStatus 2 stream cat "{$missing}"
    expectStatus 2 stream cat "$missing" "$missing"
    expectStatus 2 stream cat --offset -1 "$missing"
    expectStatus 2 stream cat --offset 9223372036854775808 "$missing"
    expectStatus 2 stream cat --count 99999999999999999999 "$missing"
    expectStatus 2 stream cat --buffer-size 2G "$missing"
    expectStatus 2 stream stat --timeout -1 "$missing"
    expectStatus 2 stream stat --timeout soon "$missing"
    expectStatus 2 stream ls --plain-loopback --connect nonsense
}

TakesTheDirectoryBeforeTheCommandToo() {
    makeFile "$work/file" 100
    publishOne "$work/file"
    expectStatus 0 "$program" --runtime-dir "$runtime" stat "$uuid" >"$work/said"
    expectSame "The stream" "UUID $uuid" "$(head --lines 1 "$work/said" | xargs)"
}

"$case"
