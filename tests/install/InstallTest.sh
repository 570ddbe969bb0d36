#!/usr/bin/env bash
# Runs one case of the install tests: InstallTest.sh SETTINGS CASE
# shellcheck disable=SC2154 # the settings come from the build
set -euo pipefail
# shellcheck source=/dev/null
source "$1"

prefix=$workDirectory/prefix
headers=$prefix/$includeFolder/orvi-streambuf
warnings="-Wall -Wextra -Wpedantic -Werror"
libraries=(streambuf platform)
[[ $remoting != ON ]] || libraries+=(remoting)

fail() {
    echo "$*" >&2
    exit 1
}

# Fails with both texts when they differ.
expectSame() {
    local what=$1 expected=$2 actual=$3
    diff --unified <(echo "$expected") <(echo "$actual") || fail "$what: unexpected, see above"
}

install() {
    rm -rf "$1"
    "$cmake" --install "$buildDirectory" --prefix "$1"
}

# Configures a consumer project against a prefix; further arguments go to cmake.
configureConsumer() {
    local name=$1 from=$2
    rm -rf "${workDirectory:?}/$name"
    "$cmake" -S "$testDirectory/${project:-consumer}" -B "$workDirectory/$name" -G Ninja \
        "-DCMAKE_PREFIX_PATH=$from;$packagePath" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_CXX_FLAGS="$compilerFlags" -DCMAKE_CXX_EXTENSIONS=OFF \
        -DCMAKE_CXX_STANDARD_REQUIRED=ON -DCMAKE_BUILD_TYPE=Debug \
        -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF "${@:3}"
}

buildAndRunConsumer() {
    configureConsumer "$@"
    "$cmake" --build "$workDirectory/$1"
    "$workDirectory/$1/consumer"
}

runPkgConfig() {
    PKG_CONFIG_PATH=$1/$libraryFolder/pkgconfig pkg-config "${@:2}" "${module:-orvi-streambuf}"
}

buildThroughPkgConfig() {
    local name=$1 from=$2
    # shellcheck disable=SC2046,SC2086 # flags are lists of words
    "$compiler" -std=c++17 $warnings $compilerFlags \
        "$testDirectory/${project:-consumer}/main.cpp" \
        -o "$workDirectory/$name" $(runPkgConfig "$from" --cflags --libs) \
        "-Wl,-rpath,$(runPkgConfig "$from" --variable=libdir)"
}

buildAndRunThroughPkgConfig() {
    buildThroughPkgConfig "$@"
    "$workDirectory/$1"
}

# Runs the remoting consumer twice, as a publisher and as its reader.
runRemotingConsumer() {
    local meeting said
    meeting=$(mktemp --directory) # paths of sockets must be short
    # shellcheck disable=SC2064 # now
    trap "rm -rf '$meeting'" EXIT
    coproc publisher { exec "$1" "$meeting/run" publish; }
    # shellcheck disable=SC2154 # coproc sets it
    read -r said <&"${publisher[0]}"
    expectSame "The publisher" "published" "$said"
    expectSame "What was read" "one two three" "$("$1" "$meeting/run" read)"
    echo >&"${publisher[1]}"
    wait "$publisher_PID"
}

# The value of an entry of a library's dynamic section, in brackets.
dynamicEntry() {
    readelf --dynamic --wide "$prefix/$libraryFolder/liborvi-$2.so" | awk "/$1/ {print \$NF}"
}

Installs() {
    install "$prefix"
}

ServesACxx17Consumer() {
    buildAndRunConsumer consumer17 "$prefix" -DCMAKE_CXX_STANDARD=17
}

ServesACxx20Consumer() {
    buildAndRunConsumer consumer20 "$prefix" -DCMAKE_CXX_STANDARD=20
}

ServesConsumersOfAnotherCompiler() {
    local standard
    for standard in 17 20; do
        buildAndRunConsumer consumerOther "$prefix" -DCMAKE_CXX_STANDARD="$standard" \
            -DCMAKE_CXX_COMPILER="$otherCompiler"
    done
}

ServesARemotingConsumer() {
    project=remoting
    configureConsumer remotingConsumer "$prefix" -DCMAKE_CXX_STANDARD=17
    "$cmake" --build "$workDirectory/remotingConsumer"
    runRemotingConsumer "$workDirectory/remotingConsumer/consumer"
}

ServesARemotingConsumerThroughPkgConfig() {
    project=remoting
    module=orvi-remoting
    expectSame "Version" "$version" "$(runPkgConfig "$prefix" --modversion)"
    buildThroughPkgConfig remotingPkgConfig "$prefix"
    runRemotingConsumer "$workDirectory/remotingPkgConfig"
}

RemotingConsumersNeedNoGrpc() {
    project=remoting
    configureConsumer remotingAlone "$prefix" -DCMAKE_CXX_STANDARD=17 \
        -DCMAKE_DISABLE_FIND_PACKAGE_gRPC=ON -DCMAKE_DISABLE_FIND_PACKAGE_Protobuf=ON
    expectSame "Headers that are drawn in" "" \
        "$(includedFiles orvi/remoting/Endpoint.hpp -I "$headers" |
            grep --extended-regexp '/(grpc|grpcpp|google)/' || true)"
}

InstallsTheProgramWithItsPapers() {
    local name
    expectSame "Version" "orvi-stream $version" "$("$prefix/$programFolder/orvi-stream" --version)"
    for name in "$manualFolder/man1/orvi-stream.1" \
        "$dataFolder/bash-completion/completions/orvi-stream" \
        "$dataFolder/zsh/site-functions/_orvi-stream"; do
        [[ -s $prefix/$name ]] || fail "$name is not installed"
    done
    expectSame "Papers of the packages" "" "$(find "$prefix" -name '*.gz')"
}

ServesAConsumerThroughPkgConfig() {
    expectSame "Version" "$version" "$(runPkgConfig "$prefix" --modversion)"
    buildAndRunThroughPkgConfig consumerPkgConfig "$prefix"
}

ServesAConsumerAfterItWasMoved() {
    install "$workDirectory/unmoved"
    rm -rf "$workDirectory/moved"
    mv "$workDirectory/unmoved" "$workDirectory/moved"
    buildAndRunConsumer consumerMoved "$workDirectory/moved" -DCMAKE_CXX_STANDARD=17
    buildAndRunThroughPkgConfig consumerMovedPkgConfig "$workDirectory/moved"
    [[ -z $programFolder ]] || "$workDirectory/moved/$programFolder/orvi-stream" --version
}

# Expects configuring to fail, for the reason given.
expectRefusal() {
    local name=$1 reason=$2 output
    shift 2
    if output=$(configureConsumer "$name" "$prefix" "$@" 2>&1); then
        fail "Configuring should have failed"
    fi
    [[ $output == *"$reason"* ]] || fail "Failed for another reason: $output"
}

RefusesAnotherVersion() {
    expectRefusal consumerVersion 'compatible with requested version "1.0"' \
        -DORVI_WANTED_VERSION=1.0
}

RefusesAnUnknownComponent() {
    expectRefusal consumerComponent "OrviStreambuf has no component tunnel." -DORVI_WANTED_COMPONENTS=tunnel
}

HoldsThePublicHeadersAndPapersOnly() {
    local folders="foundation orvi payload streambuf"
    [[ $embeddedRegistry != ON ]] || folders="cppmicroservices $folders"
    expectSame "Header folders" "$folders" "$(cd "$headers" && echo *)"
    expectSame "Headers of streambuf" "StreamBuffer.hpp" "$(ls "$headers/streambuf")"
    expectSame "Headers of payload" \
        "$(cd "$sourceDirectory/src/payload" && find . -name '*.hpp' ! -name SeekCodes.hpp | sort)" \
        "$(cd "$headers/payload" && find . -type f | sort)"
    expectSame "Papers" "CHANGELOG.md README.md SECURITY.md docs" \
        "$(cd "$prefix/$documentFolder" && echo *)"
    expectSame "Files that are no headers" "" "$(find "$headers" -type f ! -name '*.hpp' ! -name '*.h')"
}

NamesNoFolderOfTheBuild() {
    local found
    found=$(grep --recursive --binary-files=without-match --fixed-strings --files-with-matches \
        -e "$buildDirectory" -e "$sourceDirectory" -e "$prefix" "$prefix" || true)
    expectSame "Files that name the build" "" "$found"
    for library in "${libraries[@]}"; do
        found=$(dynamicEntry RUNPATH "$library")
        # shellcheck disable=SC2016 # the loader expands it
        [[ $found == '[$ORIGIN'* ]] || fail "liborvi-$library.so looks for its neighbours in $found"
    done
}

NamesItsLibrariesByAbiVersion() {
    for library in "${libraries[@]}"; do
        local soname=liborvi-$library.so.$sonameVersion
        expectSame "SONAME" "[$soname]" "$(dynamicEntry SONAME "$library")"
        expectSame "File behind the SONAME" "liborvi-$library.so.$version" \
            "$(basename "$(readlink --canonicalize "$prefix/$libraryFolder/$soname")")"
    done
}

exportedSymbols() {
    nm --dynamic --defined-only --demangle --format=posix \
        "$prefix/$libraryFolder/liborvi-$1.so" |
        sed --regexp-extended 's/ [A-Za-z] [0-9a-f]+( [0-9a-f]+)?$//' | LC_ALL=C sort --unique
}

RemotingExportsItsNamespaceOnly() {
    expectSame "Symbols outside of the namespace" "" \
        "$(exportedSymbols remoting | grep --extended-regexp --invert-match \
            -e '^((vtable|typeinfo|typeinfo name) for )?agent::orvi::remoting::' || true)"
}

StreambufExportsItsInterfaceOnly() {
    expectSame "Exported symbols" "$(cat "$testDirectory/streambuf-symbols.txt")" \
        "$(exportedSymbols streambuf)"
}

PlatformExportsItsNamespacesOnly() {
    local namespaces='agent::orvi::(core|frameworksetup)|foundation::cppmicroservices' exported foreign
    [[ $embeddedRegistry != ON ]] || namespaces+='|cppmicroservices'
    exported=$(exportedSymbols platform)
    foreign=$(grep --extended-regexp --invert-match \
        -e "^((vtable|typeinfo|typeinfo name) for )?($namespaces)::" \
        -e '^operator[^ ]+\(.*cppmicroservices::' <<<"$exported" || true)
    expectSame "Symbols outside the platform's namespaces" "" "$foreign"
}

# A declaration that is marked for export promises what the version scripts must not withhold.
LibrariesExportAllThatIsMarked() {
    local archive marked exported
    archive=$(find "$buildDirectory" -name liborvi_internals.a)
    marked=$(readelf --symbols --wide "$archive" |
        awk '$5 == "GLOBAL" && $6 == "DEFAULT" && $7 != "UND" && $8 ~ /^_Z/ {print $8}')
    grep --quiet makeDevice <<<"$marked" || fail "No symbols found in $archive"
    exported=$(nm --dynamic --defined-only --format=just-symbols \
        "$prefix/$libraryFolder"/liborvi-{streambuf,platform}.so)
    expectSame "Marked for export and not exported" "" \
        "$(LC_ALL=C comm -23 <(LC_ALL=C sort --unique <<<"$marked") \
            <(LC_ALL=C sort --unique <<<"$exported") | c++filt)"
}

# The files that a header draws in, one per line, without those of its own project.
includedFiles() {
    # shellcheck disable=SC2086 # flags are lists of words
    "$compiler" -std=c++17 -M "${@:2}" -x c++ - <<<"#include <$1>" | tr ' ' '\n' |
        grep --extended-regexp '^/' | LC_ALL=C sort --unique
}

ExportedHeaderNeedsBoostUuidOnly() {
    local alone=$workDirectory/alone foreign
    rm -rf "$alone"
    mkdir -p "$alone"
    cp -r "$headers/streambuf" "$alone"
    includedFiles streambuf/StreamBuffer.hpp -I "$alone" >"$alone/drawn-in"
    grep --quiet "^$alone/streambuf/StreamBuffer.hpp" "$alone/drawn-in" ||
        fail "The header under test was not found"
    includedFiles boost/uuid/uuid.hpp | grep '/boost/' >"$alone/uuid"
    foreign=$(grep '/boost/' "$alone/drawn-in" | grep --invert-match --line-regexp --fixed-strings \
        --file="$alone/uuid" || true)
    expectSame "Boost headers beyond those of Boost.Uuid" "" "$foreign"
    foreign=$(grep --extended-regexp '/(cppmicroservices|orvi|foundation|payload)/' \
        "$alone/drawn-in" || true)
    expectSame "Headers of the platform" "" "$foreign"
}

headersCompileAlone() {
    local standard=$1 includes=() header
    IFS=';' read -ra folders <<<"$registryIncludes"
    for folder in "${folders[@]}"; do includes+=(-isystem "$folder"); done
    while IFS= read -r header; do
        # Twice: a header must guard itself.
        # shellcheck disable=SC2086 # flags are lists of words
        printf '#include <%s>\n#include <%s>\n' "$header" "$header" |
            "$compiler" "-std=$standard" $warnings $compilerFlags -fsyntax-only \
                -I "$headers" "${includes[@]}" -x c++ - ||
            fail "$header does not compile alone as $standard"
    done < <(cd "$headers" && find . -type f -printf '%P\n')
}

HeadersCompileAloneAsCxx17() {
    headersCompileAlone c++17
}

HeadersCompileAloneAsCxx20() {
    headersCompileAlone c++20
}

HeadersCompileAloneWithAnotherCompiler() {
    compiler=$otherCompiler
    headersCompileAlone c++17
}

"$2"
