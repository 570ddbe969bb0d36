# Completion of orvi-stream for bash.

# Prints what one process after the other publishes; asks nobody who needs long to answer.
_orvi_stream_uuids() {
    local words options=() uuid i
    # Where to look is what has been typed so far. COMP_WORDS has addresses in pieces.
    read -ra words <<<"$COMP_LINE"
    for ((i = 1; i < ${#words[@]}; ++i)); do
        case ${words[i]} in
            --runtime-dir | --connect | --tls-cert | --tls-key | --tls-ca)
                options+=("${words[i]}" "${words[i + 1]-}")
                ;;
            --no-local | --plain-loopback) options+=("${words[i]}") ;;
        esac
    done
    "${words[0]}" ls --timeout 0.5 "${options[@]}" 2>/dev/null | while read -r uuid _; do
        [[ $uuid == UUID ]] || echo "$uuid"
    done
}

_orvi_stream() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local network='--runtime-dir --no-local --tls-cert --tls-key --tls-ca --plain-loopback --help'
    local search="--connect --timeout $network"
    local command='' i options
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
            publish | ls | stat | cat | put)
                command=${COMP_WORDS[i]}
                break
                ;;
        esac
    done

    COMPREPLY=()
    case $previous in
        --runtime-dir)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            return
            ;;
        --tls-cert | --tls-key | --tls-ca)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        --uuid | --buffer-size | --read-only | --allow | --listen | --connect | --timeout | \
            --offset | --count | -o | -n)
            return
            ;;
    esac

    case $command in
        '') options="publish ls stat cat put --version $network" ;;
        publish)
            options="--uuid --write --live --buffer-size --read-only --allow --listen $network"
            ;;
        ls) options="--watch --json $search" ;;
        stat) options="--json $search" ;;
        cat) options="--offset --count --buffer-size $search" ;;
        put) options="--offset --buffer-size $search" ;;
    esac
    if [[ $current == -* || -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    elif [[ $command == publish ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    elif [[ $command != ls ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_orvi_stream_uuids)" -- "$current")
    fi
}

complete -F _orvi_stream orvi-stream
