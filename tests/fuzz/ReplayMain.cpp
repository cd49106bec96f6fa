// Usage: PROGRAM MUTATIONS FOLDER...
// Runs a fuzz target without a fuzzer: on every file of the folders, then on as many mutations of them. The
// mutations are the same in every run.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "tests/fuzz/FuzzCheck.h"

namespace {

constexpr std::size_t kLongestInput = 4096;

using Generator = std::minstd_rand;  // the same numbers with every library

std::size_t Below(Generator& generator, std::size_t bound) {
    return bound == 0 ? 0 : generator() % bound;
}

std::string Mutated(std::string input, const std::string& other, Generator& generator) {
    for (std::size_t changes = 1 + Below(generator, 4); changes > 0; --changes) {
        const std::size_t at = Below(generator, input.size() + 1);
        const std::size_t count = 1 + Below(generator, 8);
        switch (Below(generator, 5)) {
            case 0:
                if (at < input.size()) {
                    input[at] = static_cast<char>(input[at] ^ (1 << Below(generator, 8)));
                }
                break;
            case 1:
                input.insert(at, 1, static_cast<char>(Below(generator, 256)));
                break;
            case 2:
                input.erase(at, count);
                break;
            case 3:
                input.insert(at, input.substr(Below(generator, input.size() + 1), count * 4));
                break;
            default:
                input.insert(at, other.substr(Below(generator, other.size() + 1), count * 4));
                break;
        }
    }
    return input.substr(0, kLongestInput);
}

void Run(const std::string& input) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

}  // namespace

int main(int argumentCount, char** arguments) {
    const int mutations = argumentCount > 1 ? std::atoi(arguments[1]) : 0;
    if (mutations <= 0) {
        std::fprintf(stderr, "no number of mutations\n");
        return 1;
    }
    std::vector<std::filesystem::path> files;
    for (int index = 2; index < argumentCount; ++index) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[index])) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> seeds;
    for (const auto& path : files) {
        std::ifstream file(path, std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        Run(seeds.back());
    }
    if (seeds.empty()) {
        std::fprintf(stderr, "no seeds\n");
        return 1;
    }
    Generator generator;
    for (int count = 0; count < mutations; ++count) {
        const std::string& seed = seeds[Below(generator, seeds.size())];
        const std::string& other = seeds[Below(generator, seeds.size())];
        Run(Mutated(seed, other, generator));
    }
    std::printf("%zu seeds and %d mutations\n", seeds.size(), mutations);
    return 0;
}
