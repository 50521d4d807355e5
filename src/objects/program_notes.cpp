// program_notes: which programs of a package were started, known also after a kill
// format: docs/formats/program-notes.md
// invariant: the note stands before the program starts
#include "program_notes.h"

#include "base_configuration.h"
#include "durable.h"
#include "file.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace km {

namespace {

std::string file_of(const std::string& name, const std::string& version) {
    return base_configuration().get_var(u"working_dir").mbcs_str() + std::string("/programs/") +
           name + "^" + version;
}

// Begins with a line feed, which closes a line that a kill cut.
std::string line_of(int index, const std::string& operation) {
    return "\n" + std::to_string(index) + " " + operation + "\n";
}

std::string content_of(const std::string& file) {
    std::string all;
    const int in = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return all;
    char block[4096];
    for (ssize_t got; (got = ::read(in, block, sizeof block)) > 0;)
        all.append(block, static_cast<size_t>(got));
    ::close(in);
    return all;
}

} // namespace

bool program_noted(const std::string& name, const std::string& version, int index,
                   const std::string& operation) {
    return content_of(file_of(name, version)).find(line_of(index, operation)) != std::string::npos;
}

int note_program(const std::string& name, const std::string& version, int index,
                 const std::string& operation) {
    const std::string path = file_of(name, version);
    constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    int out = ::open(path.c_str(), flags, 0600);
    if (out < 0 && errno == ENOENT) {
        file(pathname(path.c_str()).get_parent()).mk_tree();
        out = ::open(path.c_str(), flags, 0600);
    }
    if (out < 0)
        return 0;
    const std::string line = line_of(index, operation);
    const int done = write_fully(out, line.data(), line.size());
    const int error = errno;
    ::close(out);
    errno = error;
    return done;
}

int forget_programs(const std::string& name, const std::string& version) {
    return ::unlink(file_of(name, version).c_str()) == 0 || errno == ENOENT;
}

} // namespace km
