#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace app {

/// Where front ends of notebooks look for kernels, and those that start this program.
/// Threads: one.

/// A kernel that is installed.
struct InstalledKernel {
    std::string name;
    std::string displayName;
    std::filesystem::path folder;
};

/// Which of the folders of kernels is meant.
struct KernelFolder {
    bool isOfUser = false;
    std::string prefix;  ///< empty: none

    /// Neither: that of all users.
    std::filesystem::path path() const;
};

/// Throws: InputError, which says what a name must be.
void requireKernelName(const std::string& name);

/// Writes the kernel `name`, which starts this program with `arguments` and a connection file. Returns its
/// folder. Throws: InputError, for a folder that cannot be written, and for another kernel of that name.
std::filesystem::path installKernel(const KernelFolder& where, const std::string& name,
                                    const std::string& displayName,
                                    const std::vector<std::string>& arguments);

/// All that start this program: in the folder of the user, those that JUPYTER_PATH names, and those of all
/// users.
std::vector<InstalledKernel> installedKernels();

/// Removes one of installedKernels, or from the folder `where`. Returns its folder.
/// Throws: InputError, when there is none of that name.
std::filesystem::path uninstallKernel(const KernelFolder* where, const std::string& name);

}  // namespace app
