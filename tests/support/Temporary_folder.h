#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

/// A folder of the test's own, which goes with the object. Names are those of what is below it.
class Temporary_folder {
public:
    /// @param below  an existing folder in which it is made
    explicit Temporary_folder(const std::filesystem::path& below = std::filesystem::temp_directory_path())
        : root((std::filesystem::canonical(below) / "quarvelutil.XXXXXX").string())
    {
        if (mkdtemp(root.data()) == nullptr)
            std::abort();
    }
    ~Temporary_folder()
    {
        std::error_code ignored; // what a test took the permission to
        std::filesystem::remove_all(root, ignored);
    }
    Temporary_folder(const Temporary_folder&) = delete;
    Temporary_folder& operator=(const Temporary_folder&) = delete;

    /// Absolute, with no link in the folder's own part.
    std::string path(const std::string& name = "") const { return name.empty() ? root : root + "/" + name; }

    /// Makes a file, and the folders above it.
    std::string file(const std::string& name, const std::string& bytes = "x") const
    {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    std::string folder(const std::string& name) const
    {
        std::filesystem::create_directories(path(name));
        return path(name);
    }
    std::string link(const std::string& name, const std::string& target) const
    {
        std::filesystem::create_symlink(target, path(name));
        return path(name);
    }

    std::string content(const std::string& name) const
    {
        std::ostringstream bytes;
        bytes << std::ifstream(path(name), std::ios::binary).rdbuf();
        return bytes.str();
    }
    /// The names of all that is in it, in order; links are not followed.
    std::vector<std::string> entries() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
            names.push_back(entry.path().lexically_relative(root).string());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string root;
};
