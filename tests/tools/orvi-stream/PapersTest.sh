#!/usr/bin/env bash
# What orvi-stream says about itself: help, manual page and completions.
# shellcheck disable=SC2154 # set by Support.sh
# shellcheck source=/dev/null
source "$(dirname "${BASH_SOURCE[0]}")/Support.sh" "$@"

papers=$sources/tools/orvi-stream/papers
commands=(publish ls stat cat put)

helpOf() {
    "$program" "$@" --help
}

# The options that a part of a help text lists.
listedOptions() {
    sed --quiet 's/^  \(-[^ ]*\).*/\1/p' | grep --only-matching -e '--[a-z-]*' | sort
}

# The options that the help of a command lists, without those for the network.
optionsOf() {
    comm -23 <(helpOf "$@" | listedOptions) <(networkOptions)
}

networkOptions() {
    { helpOf | sed --quiet '/^Network:/,/^$/p' | listedOptions && echo --help; } | sort
}

HelpBeginsWithExamples() {
    local command
    expectSame "First line" "Examples:" "$(helpOf | head --lines 1)"
    for command in "${commands[@]}"; do
        expectSame "First line of $command" "Examples:" "$(helpOf "$command" | head --lines 1)"
        helpOf "$command" | sed --quiet 2p | grep --quiet "orvi-stream" ||
            fail "There is no example of $command"
    done
}

TellsItsVersion() {
    local version
    version=$(sed --quiet --regexp-extended 's/^    VERSION (.*)/\1/p' "$sources/CMakeLists.txt")
    expectSame "The version" "orvi-stream $version" "$("$program" --version)"
}

FailsWhenAnAnswerCannotBeWritten() {
    local question
    for question in --help --version "publish --help"; do
        # shellcheck disable=SC2086 # words of a command line
        expectStatus 1 "$program" $question >/dev/full
        expectSaid "No space left on device"
    done
    expectStatus 1 "$program" --help >&-
    expectSaid "cannot write the standard output: Bad file descriptor"
}

AnswersAlsoWhenItsReaderHasEnough() {
    mkfifo "$work/pipe"
    exec {input}<>"$work/pipe"
    exec {output}>"$work/pipe"
    exec {input}<&-
    expectStatus 0 "$program" --help >&"$output"
    expectSilence
}

# The text of the manual page's section about a command.
manualOf() {
    sed --quiet "/^\.Ss orvi-stream $1\$/,/^\.Ss/p" "$papers/orvi-stream.1"
}

ManualKnowsEveryOption() {
    local command option manual
    for command in "${commands[@]}"; do
        manual=$(manualOf "$command")
        [[ -n $manual ]] || fail "The manual does not know $command"
        for option in $(optionsOf "$command"); do
            case $option in --connect | --timeout) continue ;; esac
            grep --quiet -e "Fl ${option#-}\b" <<<"$manual" ||
                fail "The manual does not know $command $option"
        done
    done
    for option in $(networkOptions) --connect --timeout; do
        grep --quiet -e "^\.It.*Fl ${option#-}\b" "$papers/orvi-stream.1" ||
            fail "The manual does not know $option"
    done
    grep --quiet '^\.Fl -version$' "$papers/orvi-stream.1" || fail "The manual does not know --version"
}

ManualIsWithoutWarnings() {
    local warnings
    warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z \
        "$papers/orvi-stream.1" 2>&1 >/dev/null)
    expectSame "Warnings" "" "$warnings"
}

# Sets `COMPREPLY` to what the completion for bash offers for the words of a command line.
completeWords() {
    COMP_WORDS=("$@")
    COMP_LINE="${COMP_WORDS[*]}"
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _orvi_stream
}

offered() {
    completeWords "$@"
    printf '%s\n' "${COMPREPLY[@]}" | sort
}

useBashCompletion() {
    bash -n "$papers/orvi-stream.bash"
    # shellcheck source=/dev/null
    source "$papers/orvi-stream.bash"
}

BashCompletesCommandsAndOptions() {
    local command
    useBashCompletion
    expectSame "Commands" "$(printf '%s\n' publish put)" "$(offered orvi-stream pu)"
    expectSame "Options" "$({ networkOptions; echo --version; } | sort)" "$(offered orvi-stream --)"
    for command in "${commands[@]}"; do
        expectSame "Options of $command" "$({ networkOptions; optionsOf "$command"; } | sort)" \
            "$(offered orvi-stream "$command" --)"
    done
}

BashCompletesFiles() {
    useBashCompletion
    mkdir "$work/folder"
    : >"$work/file"
    expectSame "Files" "$(printf '%s\n' "$work/file" "$work/folder")" \
        "$(offered orvi-stream publish "$work/f")"
    expectSame "Folders" "$work/folder" "$(offered orvi-stream ls --runtime-dir "$work/f")"
}

BashCompletesStreams() {
    useBashCompletion
    : >"$work/file"
    start 2 "$program" publish --runtime-dir "$runtime" "$work/file" "$work/file"
    expectSame "Streams" "$(printf '%s\n' "${uuids[@]}" | sort)" \
        "$(offered "$program" --runtime-dir "$runtime" cat '')"
    expectSame "The stream" "$uuid" "$(offered "$program" --runtime-dir "$runtime" cat "${uuid:0:8}")"
}

# What the completion for zsh offers at a place: zshOptions [COMMAND]
zshOptions() {
    # shellcheck disable=SC2016 # expanded by zsh
    zsh -f -c 'words=("$2")
        _arguments() {
            [[ -n $words[1] || $1 != -C ]] || print -rl -- "$@"
            [[ -z $words[1] || $1 == -C ]] || print -rl -- "$@"
            state=argument
        }
        source "$1"' - "$papers/_orvi-stream" "${1-}" |
        sed --regexp-extended --quiet 's/^(\([^)]*\))?\*?(--[a-z-]+)\[.*/\2/p' | sort
}

ZshCompletesOptions() {
    local command
    expectSame "Options" "$({ networkOptions && echo --version; } | sort)" "$(zshOptions)"
    for command in "${commands[@]}"; do
        expectSame "Options of $command" "$(helpOf "$command" | listedOptions)" \
            "$(zshOptions "$command")"
    done
}

"$case"
