#!/bin/bash
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: word_sizes.sh DIRECTORY
# Runs in the world that scripts/test-word-sizes has made: DIRECTORY holds the systems amd64 and i386
# with the examples of both, and what they share.
set -eu
cd "$1"

programs=/src/build/demo/examples
deadline_sec=60

fail() {
    echo "word_sizes: $1" >&2
    exit 1
}

chroot amd64 dbus-daemon --session --address=unix:path=/shared/bus --fork --print-pid=3 3>shared/pid
trap 'kill "$(cat shared/pid)"' EXIT
export DBUS_SESSION_BUS_ADDRESS=unix:path=/shared/bus
unset DISPLAY

# The process that its parent has started becomes the child: its process id stays.
for own in amd64 i386; do
    cat >"$own/shared/other_child" <<CHILD
#!/bin/sh
exec chroot /other $programs/hello_child
CHILD
    chmod +x "$own/shared/other_child"
done

start_child() {
    chroot "$1" "$programs/demo_child" >"shared/$1.log" &
    child=$!
    local end=$((SECONDS + deadline_sec))
    until chroot "$1" "$programs/demo_ctl" --pid "$child" show >/dev/null; do
        [ "$SECONDS" -lt "$end" ] || fail "the child of $1 does not answer"
    done
}

end_child() {
    kill "$child"
    wait "$child" || true
}

for pair in amd64:i386 i386:amd64; do
    own=${pair%:*} other=${pair#*:}

    reply=$(chroot "$own" "$programs/hello_parent" /shared/other_child)
    [ "$reply" = "Hello, world!" ] || fail "a parent of $own hears '$reply' from a child of $other"

    rm -f /dev/shm/*
    start_child "$other"
    listed=$(chroot "$own" "$programs/demo_ctl" list)
    [ "$listed" = "key $child: process $child" ] || fail "a tool of $own lists '$listed'"
    shown=$(chroot "$own" "$programs/demo_ctl" show "$child")
    [ "$shown" = "process $child has noted: " ] || fail "a tool of $own shows '$shown'"
    before=$(md5sum /dev/shm/*)

    # The lock has the other size: refused, and left as it was.
    first=$child
    start_child "$own"
    grep -q "ERR: Failed lock shm (shm_name:vask_proc_pid_demo_child)" "shared/$own.log" ||
        fail "a child of $own is let into the lock of $other"
    [ "$(md5sum /dev/shm/*)" = "$before" ] || fail "a child of $own has changed what it cannot use"
    end_child
    child=$first
    end_child
done
echo "Processes of both word sizes get along."
