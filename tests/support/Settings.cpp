// Every test process keeps the standard settings store in a folder of its
// own, removed when the process ends, so that no test reads what another
// (or the machine's user) stored.
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "veltrane/platform/UserDefaults.h"

namespace {

struct TemporarySettings {
    std::filesystem::path folder = std::filesystem::temp_directory_path() / ("veltrane-tests-" + std::to_string(::getpid()));
    TemporarySettings() { veltrane::UserDefaults::setStandardPath(folder / "UserDefaults.sqlite"); }
    ~TemporarySettings() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
};

const TemporarySettings settings;

} // namespace
