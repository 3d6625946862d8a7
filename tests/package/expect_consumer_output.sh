# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# Sourced: runs the consumer program and compares what it prints, but for the process id.

expect_consumer_output() {
    output=$("$1") || { echo "$1 failed with status $?"; exit 1; }
    shown=$(printf '%s\n' "$output" | sed -E 's/^\[consumer:[0-9]+\]/[consumer:PID]/')
    expected='[consumer:PID] NOTICE: hello 2
[consumer:PID] INFO: goodbye'
    if [ "$shown" != "$expected" ]; then
        printf 'expected:\n%s\ngot:\n%s\n' "$expected" "$output"
        exit 1
    fi
}
