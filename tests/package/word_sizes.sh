#!/bin/bash
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
#
# Usage: word_sizes.sh DIRECTORY ARCHITECTURE ARCHITECTURE
# Runs in the world that scripts/test-word-sizes has made: DIRECTORY holds two systems with the
# examples, called by their architectures, and what they share.
set -eu
cd "$1"
first_arch=$2
second_arch=$3

# Built there, or installed.
export PATH=/src/build/demo/examples:/src/build/demo/tools/vaskctl:/usr/libexec/vask-examples:$PATH
deadline_sec=60
greet=1

fail() {
    echo "word_sizes: $1" >&2
    exit 1
}

chroot "$first_arch" dbus-daemon --session --address=unix:path=/shared/bus --fork --print-pid=3 3>shared/pid
trap 'kill "$(cat shared/pid)"' EXIT
export DBUS_SESSION_BUS_ADDRESS=unix:path=/shared/bus
unset DISPLAY

# The process that its parent has started becomes the child: its process id stays.
for own in "$first_arch" "$second_arch"; do
    cat >"$own/shared/other_child" <<CHILD
#!/bin/sh
exec chroot /other hello_child
CHILD
    chmod +x "$own/shared/other_child"
done

start_child() {
    chroot "$1" demo_child >"shared/$1.log" &
    child=$!
}

wait_for_answer() {
    local end=$((SECONDS + deadline_sec)) told
    until told=$(chroot "$1" vaskctl call demo_child:"$child" "$greet" 2>&1); do
        [ "$SECONDS" -lt "$end" ] || fail "the child of $1 does not answer: $told"
    done
}

# Nobody finds it, but it goes on.
wait_for_refusal() {
    local end=$((SECONDS + deadline_sec))
    until grep -q "ERR: Failed lock shm (shm_name:vask_proc_pid_demo_child)" "shared/$1.log"; do
        [ "$SECONDS" -lt "$end" ] || fail "a child of $1 is let into the lock of $2"
        sleep 0.2
    done
    kill -0 "$child" || fail "a child of $1 has ended because it was refused"
}

# The kernel shows an emulator's name for that of its program.
has_its_name() {
    tr '\0' '\n' <"$first_arch/proc/$child/cmdline" | head -n 1 | grep -q 'demo_child$'
}

end_child() {
    kill "$child"
    wait "$child" || true
}

for pair in "$first_arch:$second_arch" "$second_arch:$first_arch"; do
    own=${pair%:*} other=${pair#*:}

    reply=$(chroot "$own" hello_parent /shared/other_child)
    [ "$reply" = "Hello, world!" ] || fail "a parent of $own hears '$reply' from a child of $other"

    rm -f /dev/shm/*
    start_child "$other"
    wait_for_answer "$other"
    reply=$(chroot "$own" vaskctl call demo_child:"$child" "$greet")
    [ "$reply" = "Hello , I am process $child" ] || fail "a tool of $own hears '$reply'"
    if has_its_name; then
        listed=$(chroot "$own" demo_ctl list)
        [ "$listed" = "key $child: process $child" ] || fail "a tool of $own lists '$listed'"
        shown=$(chroot "$own" demo_ctl show "$child")
        [ "$shown" = "process $child has noted: " ] || fail "a tool of $own shows '$shown'"
    else
        echo "Not looked for by its name, which is an emulator's: the child of $other."
    fi

    # The record's semaphore has the other size: it can be read, not changed.
    chroot "$other" vaskctl record set monitor-rotation 2
    if chroot "$own" vaskctl record set monitor-rotation 1 2>/dev/null; then
        fail "a tool of $own changes the record of $other"
    fi
    read=$(chroot "$own" vaskctl record --no-legend get monitor-rotation)
    case $read in
    *2*) ;;
    *) fail "a tool of $own reads '$read' in the record of $other" ;;
    esac
    before=$(md5sum /dev/shm/*)

    # The lock has the other size: refused, and left as it was.
    first=$child
    start_child "$own"
    wait_for_refusal "$own" "$other"
    [ "$(md5sum /dev/shm/*)" = "$before" ] || fail "a child of $own has changed what it cannot use"
    end_child
    child=$first
    end_child
done
echo "Processes of both word sizes get along."
