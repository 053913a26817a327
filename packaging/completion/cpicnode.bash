# Completion of cpicnode(1) for bash. Needs nothing of the package bash-completion, which only saves sourcing the file.

# Files (-f) or directories (-d) that begin with a word.
_cpicnode_paths()
{
    mapfile -t COMPREPLY < <(compgen "$1" -- "$2")
    compopt -o filenames 2>/dev/null # fails, and is not needed, when bash is not completing
}

_cpicnode()
{
    local options="--dir --json --help --version" words="" command="" given=() word before i
    COMPREPLY=()

    # The words up to the cursor. Bash takes --dir=/tmp for three of them; here it is two, like --dir /tmp.
    for ((i = 1; i <= COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} != = ]]; then
            given+=("${COMP_WORDS[i]}")
        elif ((i == COMP_CWORD)); then
            given+=("")
        fi
    done
    local last=$((${#given[@]} - 1))
    word=${given[last]} before=
    ((last > 0)) && before=${given[last - 1]}

    # The value of an option.
    case $before in
    --config) _cpicnode_paths -f "$word"; return ;;
    --dir) _cpicnode_paths -d "$word"; return ;;
    --idle | --for | -n | --lines) return ;;
    esac

    # The command so far, without options and their values.
    for ((i = 0; i < last; i++)); do
        case ${given[i]} in
        --config | --dir | --idle | --for | -n | --lines) i=$((i + 1)) ;;
        -*) ;;
        *) command+=${command:+ }${given[i]} ;;
        esac
    done

    case $command in
    "") words="start stop status check reload show trace audit problems monitor" ;;
    start) options+=" --config --idle" ;;
    check) [[ $word == -* ]] || { _cpicnode_paths -f "$word"; return; } ;;
    show) words="lus modes side-info names programs startable conversations attaches" ;;
    trace) words="on off show" ;;
    audit) words="on off" options+=" --lines --follow" ;;
    "trace show" | problems) options+=" --lines --follow" ;;
    monitor) options+=" --for" ;;
    esac
    [[ $word == -* ]] && words=$options
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -F _cpicnode cpicnode
