# SPDX-License-Identifier: MIT
# Completion of vornctl and vornsim in bash. Commands and options come from the programs' own help, so that they are
# always those of the version that is installed.

# Prints the options of a help text, one a line: all names without a value, "-o,--output FILE.fits", or with one.
_vorn_options()
{
    sed -nE 's/^  (-[^ ]+( [^ ]+)*)($|  .*)/\1/p' <<<"$1"
}

# Prints the commands of a help text.
_vorn_commands()
{
    sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+)  .*/\1/p' <<<"$1"
}

# Completes the value of an option or of a command. $1: what it is called in the help, $2: beginning of the value
_vorn_value()
{
    case $1 in
        *FILE* | *--log*) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$2") ;;
        *--camera*) mapfile -t COMPREPLY < <(compgen -W "$(vornsim list | sed -n 's/^Vorn \([^ ]*\).*/\1/p')" -- "$2") ;;
        *--device*) mapfile -t COMPREPLY < <(compgen -W "$(vornctl list 2>/dev/null | sed 's/ .*//')" -- "$2") ;;
        *--scene*) mapfile -t COMPREPLY < <(compgen -W "sky flat ramp" -- "$2") ;;
        *--type*) mapfile -t COMPREPLY < <(compgen -W "light dark bias flat" -- "$2") ;;
        shutter) mapfile -t COMPREPLY < <(compgen -W "open close" -- "$2") ;;
        guide) mapfile -t COMPREPLY < <(compgen -W "x+ x- y+ y-" -- "$2") ;;
    esac
}

_vorn()
{
    local program=$1 current=$2 previous=$3 command='' word help option
    local -a words=("${COMP_WORDS[@]:1:COMP_CWORD-1}")
    COMPREPLY=()
    for word in "${words[@]}"; do
        if [[ $word == -- ]]; then  # the program to run, and its own arguments
            declare -F _command_offset >/dev/null && _command_offset $((COMP_CWORD)) && return
            mapfile -t COMPREPLY < <(compgen -c -f -- "$current")
            return
        fi
        [[ -z $command && $word =~ ^[a-z]+$ ]] && command=$word
    done
    help=$("$program" ${command:+"$command"} --help 2>/dev/null)
    [[ -n $command ]] && help+=$'\n'$("$program" --help 2>/dev/null | sed '/^Subcommands:/,$d')

    while read -r option; do  # does the word before take a value?
        [[ $option == *' '* && ",${option%% *}," == *,"$previous",* ]] && _vorn_value "$option" "$current" && return
    done < <(_vorn_options "$help")
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_vorn_options "$help" | sed 's/ .*//' | tr , '\n' | sort -u)" -- "$current")
    elif [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_vorn_commands "$help")" -- "$current")
    else
        _vorn_value "$command" "$current"
    fi
}

complete -F _vorn vornctl vornsim
