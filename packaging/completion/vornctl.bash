# SPDX-License-Identifier: MIT
# bash completion for vornctl(1)

_vornctl()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command="" word
    local commands="list info expose status monitor cool warm filter shutter guide gpio gain doctor"
    local always="--help --json --quiet --trace"
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ " $commands " == *" $word "* ]]; then
            command=$word
            break
        fi
    done
    case $previous in
        -o | --output | --png | --plot)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        --type)
            mapfile -t COMPREPLY < <(compgen -W "light dark bias flat" -- "$current")
            return
            ;;
        --bin)
            mapfile -t COMPREPLY < <(compgen -W "1x1 2x2 3x3 4x4" -- "$current")
            return
            ;;
        -d | --device | -t | --time | --roi | --count | --interval | --timeout | --ramp | --filter | --gain | --offset)
            return
            ;;
    esac
    local camera="--device --timeout" words
    case $command in
        "") words="$commands --version" ;;
        list) words="" ;;
        doctor) words="--timeout" ;;
        expose) words="$camera --time --output --png --type --dark --bin --roi --filter --count --interval --warm --force" ;;
        cool) words="$camera --ramp --no-wait" ;;
        warm) words="$camera --no-wait" ;;
        monitor) words="$camera --interval --count --plot --force" ;;
        shutter) words="open close $camera" ;;
        guide) words="x+ x- y+ y- $camera" ;;
        gpio) words="$camera --outputs --set" ;;
        gain) words="$camera --gain --offset" ;;
        *) words="$camera" ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words $always" -- "$current")
}

complete -F _vornctl vornctl
