#ifndef VASK_PID_ARRAY_VIEW_H
#define VASK_PID_ARRAY_VIEW_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "foundation/shared_mapping.h"
#include "vask_object.h"

// More processes than the kernel can number cannot be registered, whatever an object claims.
constexpr std::size_t most_entries = std::size_t{1} << 22;

// What a reader of the process registry sees at one instant.
struct pid_array_snapshot {
    std::uint32_t sequence = 0;
    std::uint32_t sequence_after = 0;  // read after everything else
    std::size_t entry_count = 0;       // of those that the view shows
    std::size_t wanted_size = 0;       // of a view that holds all entries the object claims to have

    bool is_stable() const { return sequence % 2 == 0 && sequence_after == sequence; }
};

// A read-only view of a registry object that others write, shorten and lengthen meanwhile. Nothing
// is loaded from the mapping directly: the kernel copies out of it, because a load from a page that
// was cut off would end the process.
class pid_array_view {
public:
    // The descriptor stays the caller's and must stay open.
    explicit pid_array_view(int fd);

    // Maps one page. False on failure.
    bool map();

    // Whether the object holds more of what a snapshot wants than the view shows.
    bool can_grow(const pid_array_snapshot& snapshot);

    // Shows as much of it as there is. False on failure.
    bool grow(const pid_array_snapshot& snapshot);

    pid_array_snapshot read();

    // What was read last, by an index below its entry_count.
    pid_array_entry entry(std::size_t index) const;

private:
    void make_room();
    template <typename Value>
    Value load(std::size_t offset) const;
    std::size_t reachable_size(const pid_array_snapshot& snapshot) const;
    std::size_t read_through_mapping(pid_array_snapshot& snapshot);
    std::size_t read_through_file(pid_array_snapshot& snapshot);

    const int m_fd;
    shared_mapping m_mapping;

    // Room for a thousand entries; few registries have more. Allocating that much for each lookup
    // makes malloc() merge and split what it keeps for small blocks, such as the nodes of the
    // caller's map.
    std::array<unsigned char, 16384> m_small_copy;
    std::vector<unsigned char> m_large_copy;
    unsigned char* m_copy = nullptr;
};

#endif
