#!/bin/sh
# SPDX-License-Identifier: MIT
# Whether what is missing gets installed although apt is in trouble, and what is reported: with programs in the places
# of dpkg-query and apt-get that have the trouble.
# Usage: dependencies_test.sh SOURCE_DIRECTORY
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin"
# The files in $work/installed are the packages installed, those in $work/available can be.
cat >"$work/bin/dpkg-query" <<'END'
#!/bin/sh
for package in "$@"; do :; done
[ ! -e "$WORK/installed/$package" ] || echo 'install ok installed'
END
cat >"$work/bin/apt-get" <<'END'
#!/bin/sh
echo "$*" >>"$WORK/calls"
if [ "$1" = update ]; then
    [ ! -e "$WORK/no-update" ] || { echo 'E: Some index files failed to download.'; exit 100; }
    exit 0
fi
shift 3
for package in "$@"; do
    [ -e "$WORK/available/$package" ] || { echo "E: Unable to locate package $package"; exit 100; }
done
for package in "$@"; do touch "$WORK/installed/$package"; done
END
printf '#!/bin/sh\necho 0\n' >"$work/bin/id"
chmod +x "$work"/bin/*
. "$1/scripts/dependencies.sh"
export WORK="$work"
PATH="$work/bin:$PATH"

# check STATUS INSTALLED TEXT...: wants one, two and three; then these are installed, and the output has these texts
check() {
    wanted=$1
    installed=$2
    shift 2
    status=0
    install_missing one two three >"$work/out" 2>&1 || status=$?
    found=$(cd "$work/installed" && echo *)
    for text in "$@"; do
        grep -q -x -e "$text" "$work/out" || found="$found, and no line '$text'"
    done
    [ "$status $found" = "$wanted $installed" ] && return 0
    echo "expected status $wanted and installed $installed; got $status and $found:"
    cat "$work/out" "$work/calls"
    exit 1
}
# begin AVAILABLE...: package one is installed, these can be
begin() {
    rm -rf "$work/installed" "$work/available" "$work/no-update" "$work/calls"
    mkdir "$work/installed" "$work/available"
    touch "$work/installed/one" "$work/calls"
    for package in "$@"; do
        touch "$work/available/$package"
    done
}

begin two three
check 0 'one three two' '==> Installing with apt: two three'
check 0 'one three two' '==> All packages needed are installed'
[ "$(wc -l <"$work/calls")" -eq 2 ] || { echo "not one update and one installation:"; cat "$work/calls"; exit 1; }

begin two three
touch "$work/no-update" # a mirror in the middle of a change
check 0 'one three two'

begin three
touch "$work/no-update"
check 1 'one three' 'apt could not install: two' 'E: Unable to locate package two' 'E: Some index files.*'
