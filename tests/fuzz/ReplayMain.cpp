// Runs a fuzz harness over files and folders of inputs without libFuzzer, so
// the normal build replays the seed corpus and every kept crash as a test.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv)
{
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const fs::path arg(argv[i]);
        if (!fs::exists(arg)) {
            std::fprintf(stderr, "no such input: %s\n", argv[i]);
            return 2;
        }
        if (!fs::is_directory(arg))
            inputs.push_back(arg);
        else
            for (const auto& entry : fs::directory_iterator(arg))
                if (entry.is_regular_file())
                    inputs.push_back(entry.path());
    }
    // An empty corpus would pass without testing anything.
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs\n");
        return 2;
    }
    std::sort(inputs.begin(), inputs.end());
    for (const auto& path : inputs) {
        std::fprintf(stderr, "%s\n", path.c_str());
        // Exactly the input's size, so reads past its end are caught.
        std::vector<std::uint8_t> bytes(fs::file_size(path));
        std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(bytes.data()), std::ssize(bytes));
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::fprintf(stderr, "%zu inputs replayed\n", inputs.size());
    return 0;
}
