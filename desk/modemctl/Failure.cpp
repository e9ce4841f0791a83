#include "Failure.h"

#include <filesystem>

std::string howToStart(int instance) {
    const auto bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const bool installed = std::filesystem::exists(bin.parent_path() / "lib" / "ox-modem");
    const std::string one = instance == 1 ? "1" : "";
    return "; " +
           (installed ? "ox-modem-host" + (one.empty() ? "" : " --instance " + one)
                      : "./run.sh serve" + (one.empty() ? "" : ' ' + one)) +
           " starts it";
}
