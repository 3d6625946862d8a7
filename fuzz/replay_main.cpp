// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Replays files and folders of inputs where there is no fuzzer. The name of each goes to standard
// error first, so that the last one is the one that ended the process.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

bool is_complete = false;

// Nothing that an input does may end the process, even in success: the others would go untried.
void refuse_early_exit() {
    if (!is_complete) {
        std::fputs("It has ended the process.\n", stderr);
        std::_Exit(1);
    }
}

void replay(const fs::path& path) {
    std::fprintf(stderr, "%s\n", path.c_str());
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad()) {
        std::fputs("It cannot be read.\n", stderr);
        std::_Exit(1);
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::set<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) {
            files.insert(argv[i]);
            continue;
        }
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(argv[i])) {
            if (entry.is_regular_file()) {
                files.insert(entry.path());
            }
        }
    }
    std::atexit(refuse_early_exit);
    for (const fs::path& path : files) {
        replay(path);
    }
    is_complete = true;
    std::fprintf(stderr, "%zu inputs replayed\n", files.size());
    return files.empty() ? 1 : 0;
}
