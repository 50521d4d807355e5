// scratch: a directory of its own for each test, gone when the test ends
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace km_test {

// A fresh directory below TMPDIR (or /tmp), removed with all its content by the destructor, also
// where a test took the rights of a directory away.
class scratch_dir {
  public:
    scratch_dir() {
        const char* base = std::getenv("TMPDIR");
        std::string name = std::string(base && *base ? base : "/tmp") + "/kmtest.XXXXXX";
        if (!::mkdtemp(name.data()))
            std::abort();
        path_ = name;
    }
    ~scratch_dir() {
        namespace fs = std::filesystem;
        std::error_code ignored;
        for (auto it = fs::recursive_directory_iterator(path_, ignored);
             !ignored && it != fs::recursive_directory_iterator(); it.increment(ignored))
            if (it->symlink_status(ignored).type() == fs::file_type::directory)
                fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        fs::remove_all(path_, ignored);
    }
    scratch_dir(const scratch_dir&) = delete;
    scratch_dir& operator=(const scratch_dir&) = delete;

    const std::string& path() const { return path_; }
    // Full name of `name` below the directory.
    std::string at(const std::string& name) const { return path_ + "/" + name; }

    std::string write(const std::string& name, const std::string& bytes) const {
        std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
        std::ofstream(at(name), std::ios::binary) << bytes;
        return at(name);
    }
    std::string read(const std::string& name) const {
        std::ifstream in(at(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    unsigned mode(const std::string& name) const {
        return static_cast<unsigned>(std::filesystem::status(at(name)).permissions());
    }
    bool exists(const std::string& name) const {
        return std::filesystem::symlink_status(at(name)).type() !=
               std::filesystem::file_type::not_found;
    }

  private:
    std::string path_;
};

} // namespace km_test
