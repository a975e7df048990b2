# shellcheck shell=bash
# Sourced by what needs a bare Debian 12. As root; `trial` is a folder of its own that goes at the end.
set -euo pipefail
name=${0##*/}
fail() { printf '%s: %s\n' "$name" "$*" >&2; exit 1; }
[[ $EUID -eq 0 ]] || fail "debootstrap and chroot need root; run it as root"

# Called by the script itself, not by what it runs in a tree.
make_trial() {
  trial=$(mktemp -d)
  chmod 755 "$trial"
  trap 'rm -rf --one-file-system "$trial"' EXIT
}

# make_tree FOLDER [PACKAGE...]: from where this machine has its own packages.
make_tree() {
  local mirror
  # shellcheck disable=SC2016 # apt-get's own variable
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' \
    'Component: main' | head -n 1)
  [[ -n $mirror ]] || fail "apt knows no mirror of Debian 12 here; add one to its sources"
  local packages="${*:2}"
  # What is mounted ends with its namespace.
  unshare --mount debootstrap --variant=minbase ${packages:+--include="${packages// /,}"} bookworm "$1" \
    "$mirror" >"$trial/log" 2>&1 || {
    tail -n 5 "$trial/log" >&2
    fail "debootstrap failed; its last lines are above"
  }
}

# in_tree FOLDER COMMAND...: runs it there as root, with an empty environment.
in_tree() {
  # shellcheck disable=SC2016 # for the shell in the namespace
  unshare --mount bash -c 'mount -t proc proc "$0/proc" && mount --rbind /dev "$0/dev" &&
    exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root chroot "$0" "$@"' "$@" </dev/null
}
