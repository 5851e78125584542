// Every harness's artefacts (crash-, leak-, timeout- and oom- inputs) land in
// the build's findings folder, never in the folder it is run from, unless the
// command line names a place with -artifact_prefix.
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    for (int i = 1; i < *argc; ++i)
        if (std::strncmp((*argv)[i], "-artifact_prefix=", 17) == 0) return 0;
    std::error_code ignored;
    std::filesystem::create_directories(VELTRANE_FUZZ_FINDINGS, ignored);
    static std::string flag = "-artifact_prefix=" VELTRANE_FUZZ_FINDINGS "/";
    static std::vector<char*> arguments;
    arguments.assign(*argv, *argv + *argc);
    arguments.push_back(flag.data());
    arguments.push_back(nullptr);
    *argc += 1;
    *argv = arguments.data();
    return 0;
}
