#!/usr/bin/env bash
# Runs one case of the example tests: ExamplesTest.sh CASE SOURCES QUICKSTART DEMO WORK-FOLDER
set -euo pipefail

sources=$2
quickstart=$3
demo=$4
work=$5
mkdir -p "$work"

QuickstartPrintsTheGreeting() {
    diff --unified <(echo "Hello, reader!") <("$quickstart")
}

ReadmeShowsTheQuickstart() {
    # shellcheck disable=SC2016 # backquotes of Markdown
    diff --unified "$sources/examples/quickstart.cpp" \
        <(sed --quiet '/^```cpp$/,/^```$/ {/^```/!p}' "$sources/README.md")
}

DemoCopiesAFileUnchanged() {
    local offset=70001 length=12345
    head --bytes 300000 "$demo" >"$work/source"
    "$demo" "$work/source" "$work/copy" "$work/sink" "$work/region" "$offset" "$length"
    cmp "$work/source" "$work/copy"
    cmp "$work/source" "$work/sink"
    tail --bytes "+$((offset + 1))" "$work/source" >"$work/rest"
    cmp <(head --bytes "$length" "$work/rest") "$work/region"
}

DemoFailsWithoutItsFile() {
    local status=0
    "$demo" "$work/missing" "$work/copy" "$work/sink" "$work/region" 0 0 2>"$work/errors" ||
        status=$?
    [[ $status == 1 ]]
    grep --quiet "Ifstream file object is invalid" "$work/errors"
}

"$1"
