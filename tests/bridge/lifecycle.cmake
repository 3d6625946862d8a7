# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

vask_add_test_program(NAME lifecycle_probe SOURCES ../programs/lifecycle_probe.cpp)

vask_add_test_objects(NAME lifecycle_support SOURCES lifecycle_support.cpp lifecycle_sigterm.cpp)
set(lifecycle_programs bridge_child lifecycle_probe)

vask_add_test(NAME lifecycle_test BUS
    SOURCES
        lifecycle_lost_bus_test.cpp
        lifecycle_meeting_test.cpp
        lifecycle_rendezvous_test.cpp
        lifecycle_spawn_test.cpp
        lifecycle_twins_test.cpp
    APART lifecycle_rendezvous_test.cpp lifecycle_twins_test.cpp
    LIBRARIES lifecycle_support
    LABELS bridge
    DEPENDS_ON_PROGRAMS ${lifecycle_programs})

vask_add_test(NAME lifecycle_start_test BUS
    SOURCES lifecycle_start_test.cpp
    LIBRARIES lifecycle_support
    LABELS bridge
    DEPENDS_ON_PROGRAMS ${lifecycle_programs})

vask_add_test(NAME lifecycle_no_bus_test
    SOURCES lifecycle_environment_test.cpp lifecycle_no_bus_test.cpp
    LIBRARIES lifecycle_support
    LABELS bridge
    DEPENDS_ON_PROGRAMS ${lifecycle_programs})

# The same tests twice, for the two roads by which a bridge hears of the end of its children.
vask_add_test_objects(NAME lifecycle_end_tests
    SOURCES
        lifecycle_delete_test.cpp
        lifecycle_end_test.cpp
        lifecycle_repeat_test.cpp
        lifecycle_signals_test.cpp
        lifecycle_wait_clock_test.cpp
        lifecycle_wait_test.cpp
        ../support/shown_clock.cpp)
vask_add_test(NAME lifecycle_end_by_pidfd_test
    SOURCES lifecycle_pidfd.cpp
    LIBRARIES lifecycle_end_tests lifecycle_support
    LABELS bridge
    DEPENDS_ON_PROGRAMS ${lifecycle_programs})
vask_add_test(NAME lifecycle_end_by_polling_test
    SOURCES lifecycle_no_pidfd.cpp
    LIBRARIES lifecycle_end_tests lifecycle_support
    LABELS bridge
    DEPENDS_ON_PROGRAMS ${lifecycle_programs})

vask_add_test(NAME last_signals_by_pidfd_test BUS
    SOURCES last_signals_test.cpp recycled_pid_test.cpp
    LIBRARIES lifecycle_support
    LABELS bridge
    DEPENDS_ON_PROGRAMS ${lifecycle_programs})
vask_add_test(NAME last_signals_by_polling_test BUS
    SOURCES last_signals_test.cpp recycled_pid_test.cpp lifecycle_no_pidfd.cpp
    LIBRARIES lifecycle_support
    LABELS bridge
    DEPENDS_ON_PROGRAMS ${lifecycle_programs})

vask_add_test(NAME lifecycle_cycles_test BUS TIMEOUT 300 SECONDS 48
    SOURCES lifecycle_cycles_test.cpp
    LIBRARIES lifecycle_support
    LABELS bridge
    DEPENDS_ON_PROGRAMS ${lifecycle_programs})
vask_add_test(NAME lifecycle_memory_test BUS
    SOURCES lifecycle_memory_test.cpp ../support/counted_memory.cpp
    LIBRARIES lifecycle_support bridge_test_support
    LABELS bridge
    DEPENDS_ON_PROGRAMS bridge_child)
