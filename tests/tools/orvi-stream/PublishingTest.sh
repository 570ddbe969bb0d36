#!/usr/bin/env bash
# Publishing with orvi-stream.
# shellcheck disable=SC2154 # set by Support.sh
# shellcheck source=/dev/null
source "$(dirname "${BASH_SOURCE[0]}")/Support.sh" "$@"

one=00112233-4455-6677-8899-aabbccddeef1
two=00112233-4455-6677-8899-aabbccddeef2

expectNoSockets() {
    expectSame "What is left" "" "$(find "$runtime" -type s)"
}

PrintsAUuidForEachFile() {
    local file
    for file in a b c; do makeFile "$work/$file" 100; done
    start 3 "$program" publish --runtime-dir "$runtime" "$work/a" "$work/b" "$work/c"
    for file in a b c; do
        expectStatus 0 stream cat "${uuids[0]}" >"$work/copy"
        expectSameFile "$work/$file" "$work/copy"
        uuids=("${uuids[@]:1}")
    done
}

TakesTheUuidsGiven() {
    makeFile "$work/a" 100
    makeFile "$work/b" 100
    start 2 "$program" publish --runtime-dir "$runtime" --uuid "$one" --uuid "${two^^}" \
        "$work/a" "$work/b"
    expectSame "The UUIDs" "$one $two" "${uuids[*]}"
    expectStatus 0 stream cat "${two^^}" >"$work/copy"
    expectSameFile "$work/b" "$work/copy"
}

ServesOnWhenItsReaderHasEnough() {
    makeFile "$work/a" 100
    makeFile "$work/b" 100
    start 1 "$program" publish --runtime-dir "$runtime" --uuid "$one" --uuid "$two" \
        "$work/a" "$work/b"
    exec {published}<&-
    expectStatus 0 stream cat "$two" >"$work/copy"
    expectSameFile "$work/b" "$work/copy"
}

FailsWithoutItsFile() {
    expectStatus 1 stream publish "$work/missing"
    expectSaid "cannot open $work/missing: No such file or directory"
    expectStatus 1 stream publish "$work"
    expectSaid "Is a directory"
    mkfifo "$work/pipe"
    expectStatus 1 stream publish --write "$work/pipe"
    expectSaid "for writing"
    : >"$work/file"
    expectStatus 1 stream publish "$work/file" "$work/missing"
}

FailsWithoutItsDirectory() {
    : >"$work/file"
    mkdir --mode 0777 "$work/open"
    chmod 0777 "$work/open"
    expectStatus 1 "$program" publish --runtime-dir "$work/open" "$work/file"
    expectSaid "open to other users"
}

# Runs a publisher that is to fail, and expects it to leave what it was to publish as it was.
expectUntouched() {
    echo notes >"$work/file"
    expectStatus 1 "$@" inTime "$program" publish --runtime-dir "$runtime" --write "$work/file"
    expectSame "The file" notes "$(cat "$work/file")"
}

withoutOutput() {
    "$@" >&-
}

withoutAnyDescriptor() {
    "$@" <&- >&- 2>&-
}

FailsWithoutAStandardOutput() {
    expectUntouched withoutOutput
    expectSaid "cannot write the standard output: Bad file descriptor"
    expectUntouched withoutAnyDescriptor
}

ServesWithoutAStandardError() {
    echo notes >"$work/file"
    # shellcheck disable=SC2016 # expanded by the shell that is started
    start 1 bash -c 'exec "$@" 2>&-' - "$program" publish --runtime-dir "$runtime" --write \
        --plain-loopback --listen 127.0.0.1:0 "$work/file"
    expectSame "The file" notes "$(cat "$work/file")"
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSameFile "$work/file" "$work/copy"
}

FailsWithoutAStandardInputToPublish() {
    expectStatus 1 inTime "$program" publish --runtime-dir "$runtime" - <&-
    expectSaid "the standard input is closed"
    echo notes >"$work/file"
    publishOne "$work/file" <&-
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    expectSameFile "$work/file" "$work/copy"
}

RefusesWhatMakesNoSense() {
    : >"$work/file"
    expectStatus 2 stream publish
    expectStatus 2 stream publish --uuid "$one" "$work/file" "$work/file"
    expectSaid "1 for 2"
    expectStatus 2 stream publish --uuid nonsense "$work/file"
    expectStatus 2 stream publish - -
    expectStatus 2 stream publish --write -
    expectStatus 2 stream publish --buffer-size 0 "$work/file"
    expectStatus 2 stream publish --no-local "$work/file"
    expectStatus 2 stream publish --listen 127.0.0.1:0 "$work/file"
    expectStatus 2 stream publish --tls-cert "$work/file" "$work/file"
    expectStatus 2 stream publish --connect 127.0.0.1:1 "$work/file"
    expectStatus 2 stream publish --listen nonsense --plain-loopback "$work/file"
}

EndsOnASignal() {
    local signal
    makeFile "$work/file" 100
    for signal in INT TERM HUP; do
        publishOne "$work/file"
        endPublisher "$signal" "$((128 + $(kill -l "$signal")))"
        expectNoSockets
    done
}

IgnoresAHangUpThatIsIgnored() {
    makeFile "$work/file" 100
    trap '' HUP
    publishOne "$work/file"
    trap - HUP
    kill -HUP "$publisher"
    expectStatus 0 stream cat "$uuid" >"$work/copy"
    endPublisher TERM 143
}

EndsWhileAReadWaits() {
    local reader status=0
    mkfifo "$work/pipe"
    exec {input}<>"$work/pipe"
    publishOne - <"$work/pipe"
    exec {output}< <(exec "$program" cat --runtime-dir "$runtime" --count 4 "$uuid" \
        2>"$work/said.err")
    reader=$!
    # Once it has been taken from the pipe, the read waits for more.
    printf 'abc' >&"$input"
    until ! read -r -t 0 -u "$input"; do :; done
    endPublisher TERM 143
    expectNoSockets
    wait "$reader" || status=$?
    expectSame "Exit code" 5 "$status"
    expectSame "What the reader has" "" "$(cat <&"$output")"
}

# Publishes a file on a free port of the loopback address. Sets `address`.
publishOnLoopback() {
    makeFile "$work/file" 1000001
    publishOne --no-local --listen 127.0.0.1:0 "$@" "$work/file"
    address=$(sed --quiet 's/.*listening on //p' "$work/publisher.err")
    [[ $address == 127.0.0.1:* ]] || fail "It listens on $address"
}

ServesOverLoopback() {
    publishOnLoopback --plain-loopback
    expectStatus 0 stream cat --no-local --plain-loopback --connect "$address" "$uuid" >"$work/copy"
    expectSilence
    expectSameFile "$work/file" "$work/copy"
    expectStatus 2 stream cat --connect "$address" "$uuid"
    expectSaid "needs --tls-cert or --plain-loopback"
    expectStatus 2 stream cat --no-local "$uuid"
}

IsAskedByNameBeforeAnythingIsSaid() {
    publishOnLoopback --plain-loopback
    local byName=localhost:${address##*:}
    expectStatus 0 stream ls --no-local --plain-loopback --connect "$byName" >"$work/list"
    expectSame "The streams" "$uuid" "$(tail --lines +2 "$work/list" | awk '{print $1}')"
    expectStatus 0 stream cat --no-local --plain-loopback --connect "$byName" --timeout 0 "$uuid" \
        >"$work/copy"
    expectSameFile "$work/file" "$work/copy"
}

# Makes an authority and a certificate of it for a name: makeCertificate AUTHORITY NAME
makeCertificate() {
    local authority=$work/$1 identity=$work/$2
    [[ -e $authority.pem ]] ||
        openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 \
            -subj "/CN=$1" -keyout "$authority.key" -out "$authority.pem" 2>/dev/null
    openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=$2" \
        -keyout "$identity.key" -out "$identity.csr" 2>/dev/null
    local names=DNS:localhost,IP:127.0.0.1,DNS:$2.example.org,URI:urn:example:$2,email:$2@example.org
    openssl x509 -req -in "$identity.csr" -CA "$authority.pem" -CAkey "$authority.key" -days 2 \
        -CAcreateserial -extfile <(echo "subjectAltName=$names") -out "$identity.pem" 2>/dev/null
}

# The options of who identifies with a certificate: tls AUTHORITY NAME
tls() {
    echo "--tls-ca=$work/$1.pem --tls-cert=$work/$2.pem --tls-key=$work/$2.key"
}

# Copies the published stream over TLS: catOverTls AUTHORITY NAME OPTION...
catOverTls() {
    # shellcheck disable=SC2046 # a list of options
    "$program" cat --no-local --connect "$address" $(tls "$1" "$2") "${@:3}" "$uuid"
}

ServesOverTls() {
    makeCertificate authority publisher
    makeCertificate authority reader
    # shellcheck disable=SC2046
    publishOnLoopback $(tls authority publisher)
    expectStatus 0 catOverTls authority reader >"$work/copy"
    expectSilence
    expectSameFile "$work/file" "$work/copy"
}

TellsWhyAStrangerDoesNotGetIn() {
    makeCertificate authority publisher
    makeCertificate others stranger
    # shellcheck disable=SC2046
    publishOnLoopback $(tls authority publisher)
    expectStatus 5 catOverTls others stranger --timeout 2 >"$work/copy"
    expectSaid "$address: "
    [[ ! -s $work/copy ]] || fail "Something was read"
}

KnowsItsPeersByTheirCertificates() {
    local name
    makeCertificate authority publisher
    makeCertificate authority reader
    makeCertificate authority guest
    for name in dns:reader.example.org uri:urn:example:reader email:reader@example.org cn:reader; do
        # shellcheck disable=SC2046
        publishOnLoopback --allow "$name" $(tls authority publisher)
        expectStatus 0 catOverTls authority reader >"$work/copy"
        expectSameFile "$work/file" "$work/copy"
        expectStatus 4 catOverTls authority guest >"$work/copy"
        [[ ! -s $work/copy ]] || fail "Something was read"
    done
    # shellcheck disable=SC2046
    publishOnLoopback --allow ip:127.0.0.1 $(tls authority publisher)
    expectStatus 0 catOverTls authority reader >"$work/copy"
    # shellcheck disable=SC2046
    publishOnLoopback --allow ip:192.0.2.1 $(tls authority publisher)
    expectStatus 4 catOverTls authority reader >"$work/copy"
}

FailsWithoutItsCertificates() {
    : >"$work/file"
    expectStatus 1 stream publish --listen 127.0.0.1:0 --tls-cert "$work/missing" \
        --tls-key "$work/missing" --tls-ca "$work/missing" "$work/file"
    expectSaid "$work/missing"
}

FailsWithFilesThatAreNoCertificates() {
    local tls=(--plain-loopback --tls-cert "$work/file" --tls-key "$work/file" --tls-ca "$work/file")
    echo notes >"$work/file"
    expectStatus 1 stream publish --listen 127.0.0.1:0 "${tls[@]}" "$work/file"
    expectSaid "$work/file\" contains no certificate"
    expectStatus 1 stream cat --connect 127.0.0.1:1 "${tls[@]}" "$one"
    expectSaid "$work/file\" contains no certificate"
}

"$case"
