// SPDX-License-Identifier: MIT
/* Corpus replay: runs a fuzz target's LLVMFuzzerTestOneInput over every file
 * named on the command line (a directory stands for the files in it), so
 * that ctest replays the checked-in corpora with any compiler, libFuzzer or
 * not. A corpus that yields no file fails the run: an empty replay would
 * prove nothing. */
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> inputsOf(const std::filesystem::path& named) {
    std::vector<std::filesystem::path> inputs;
    if (std::filesystem::is_directory(named)) {
        for (const auto& entry : std::filesystem::directory_iterator(named))
            if (entry.is_regular_file()) inputs.push_back(entry.path());
        std::sort(inputs.begin(), inputs.end());
    } else if (std::filesystem::is_regular_file(named)) {
        inputs.push_back(named);
    }
    return inputs;
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const std::vector<std::filesystem::path> inputs = inputsOf(argv[i]);
        if (inputs.empty()) {
            std::fprintf(stderr, "%s: no corpus files\n", argv[i]);
            return 1;
        }
        for (const auto& input : inputs) {
            std::ifstream file(input, std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
            if (!file.good() && !file.eof()) {
                std::fprintf(stderr, "%s: cannot read\n", input.c_str());
                return 1;
            }
            // A fresh copy of exactly the input's size, so that a read past
            // its end is caught by a memory checker.
            std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
            LLVMFuzzerTestOneInput(copy.data(), copy.size());
            ++replayed;
        }
    }
    std::printf("replayed %zu inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
