#!/bin/sh
# SPDX-License-Identifier: MIT
# Does what the documents say: runs their shell blocks, file by file, compiles their whole C++ programs, runs their
# Python programs on simulated cameras, and follows their links. A block behind a line "<!-- not run: REASON -->" is
# left out.
# Usage: documents_test.sh DOCUMENT...: with SOURCE, the checkout, in the environment; works in the current directory
set -eu
here=$PWD
failed=0
export PYTHONPATH="$PREFIX/lib/python3/dist-packages"

# blocks LANGUAGE DOCUMENT: writes the fenced blocks of a language, each behind a line with the mark #@
blocks() {
    awk -v fence="^\`\`\`$1\$" '
        /^```/ && inside {inside = 0; next}
        $0 ~ fence && !skip {inside = 1; print "#@"; next}
        {skip = /^<!-- not run: .+ -->$/}
        inside' "$2"
}

for document in "$@"; do
    rm -rf "$here/work"
    mkdir "$here/work"
    cd "$here/work"
    ln -s "$SOURCE"/* .

    blocks sh "$document" >"$here/commands.sh"
    if ! sh -eu -x "$here/commands.sh" >"$here/log" 2>&1 </dev/null; then
        echo "$document: a command fails:"
        tail -n 15 "$here/log"
        failed=1
    fi

    blocks cpp "$document" | awk -v RS='#@\n' '/int main/ {print > ("'"$here"'/work/block-" NR ".cpp")}'
    for program in block-*.cpp; do
        [ -e "$program" ] || continue
        # shellcheck disable=SC2046  # flags are split on purpose
        c++ -std=c++20 -fsyntax-only "$program" $(pkg-config --cflags vornccd) || failed=1
    done

    blocks python "$document" | awk -v RS='#@\n' 'NF {print > ("'"$here"'/work/block-" NR ".py")}'
    for program in block-*.py; do
        [ -e "$program" ] || continue
        vornsim run --camera K12 --camera K20 -- /usr/bin/python3 "$program" >"$here/log" 2>&1 </dev/null || {
            echo "$document: a Python program fails:"
            tail -n 15 "$here/log"
            failed=1
        }
    done

    cd "$(dirname "$document")"
    grep -o '](\([^)#:]*\)' "$document" | cut -c 3- >"$here/links" || true
    while read -r link; do
        [ -e "$link" ] || { echo "$document: the link to $link leads nowhere"; failed=1; }
    done <"$here/links"
    echo "$document: $(grep -c '^#@' "$here/commands.sh") blocks"
done
# Each text that a failure leaves has its row, and each row a text that the library has.
grep -rhoE '"(No error|Device|Invalid|Unsupported|Operation|Failed)[^"%]*"' "$SOURCE/src" | tr -d '"' | grep -v '[!:\\]' |
    sort -u >"$here/texts"
sed -n '/^| text/,/^$/s/^| \([^|]*\) |.*/\1/p' "$SOURCE/docs/errors.md" | sed '1d; s/, Failed/\nFailed/g' |
    sort -u >"$here/rows"
diff "$here/texts" "$here/rows" || { echo "errors.md (>) and the library's texts (<) differ"; failed=1; }

# options PROGRAM COMMAND...: the options that the help of a program and its commands shows
options() {
    program=$1
    shift
    for command in "" "$@"; do
        # shellcheck disable=SC2086  # no command is no argument
        "$program" $command --help
    done | sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p' | sort -u
}
for page in "vornctl list info expose status monitor cool warm filter shutter guide gpio gain doctor" \
    "vornsim list run usbip"; do
    # shellcheck disable=SC2086  # program and commands
    set -- $page
    options "$@" >"$here/helped"
    grep -oE -- '\*--[a-z][a-z-]+' "$SOURCE/docs/man/$1.1.scd" | tr -d '*' | sort -u >"$here/described"
    diff "$here/helped" "$here/described" || { echo "the help (<) and the manual page (>) of $1 differ"; failed=1; }
done
exit $failed
