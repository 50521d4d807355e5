// faults: runs a program and counts, kills at, or fails its disk-changing system calls
//
//   faults count PROGRAM ARG...              prints "calls N" on standard error's last line
//   faults kill N PROGRAM ARG...             kills everything just before the N-th call (from 1);
//                                            of a run that has fewer: as count
//   faults fail N ERRNO PROGRAM ARG...       the N-th call and all after it of the same kind of
//                                            change fail with ERRNO (a number)
//   faults once N ERRNO PROGRAM ARG...       only the N-th call fails
//   faults trace PROGRAM ARG...              prints each counted call
//   faults step OUT IN PROGRAM ARG...        tells each counted call to descriptor OUT before it
//                                            runs, as "N NAME DEVICE INODE" of the descriptor in
//                                            its first argument (0 0 where it has none), and waits
//                                            for a byte of descriptor IN; so that somebody can look
//                                            at the disk between any two calls: of two threads one
//                                            waits until the call of the other has ended
//
// A tracer at the kernel's door, not a preload: a write from inside the C library, a static program
// and a child of a child are seen alike. A filter in the traced program stops it at the counted
// calls only, so that the rest runs at full speed. Counted is what changes a disk: opening with
// O_CREAT, O_TRUNC or O_TMPFILE, writing to a regular file, and every call that makes, removes,
// renames, links, truncates, syncs or changes the attributes of a name. Writes to pipes, terminals
// and sockets are not.
//
// Exit status: the program's own; 137 after a kill; 125 if the tracer itself failed.

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <set>
#include <string>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

enum class mode { count, kill, fail, once, trace, step };

struct watched {
    long number;
    const char* name;
};

#define CALL(name)                                                                                 \
    { SYS_##name, #name }
const watched calls[] = {
    CALL(write),     CALL(pwrite64),  CALL(writev),    CALL(pwritev),         CALL(open),
    CALL(openat),    CALL(openat2),   CALL(creat),     CALL(mkdir),           CALL(mkdirat),
    CALL(rmdir),     CALL(unlink),    CALL(unlinkat),  CALL(rename),          CALL(renameat),
    CALL(renameat2), CALL(link),      CALL(linkat),    CALL(symlink),         CALL(symlinkat),
    CALL(truncate),  CALL(ftruncate), CALL(fallocate), CALL(chmod),           CALL(fchmod),
    CALL(fchmodat),  CALL(chown),     CALL(fchown),    CALL(lchown),          CALL(fchownat),
    CALL(utimensat), CALL(utime),     CALL(utimes),    CALL(fsync),           CALL(fdatasync),
    CALL(syncfs),    CALL(mknod),     CALL(mknodat),   CALL(copy_file_range), CALL(sendfile),
    CALL(setxattr),  CALL(fsetxattr)};
#undef CALL

const char* name_of(long number) {
    for (const auto& call : calls)
        if (call.number == number)
            return call.name;
    return "?";
}

[[noreturn]] void die(const char* what) {
    std::perror(what);
    std::_Exit(125);
}

// Child: asks to be traced, puts the filter in place and becomes the program.
[[noreturn]] void become(char** argv) {
    std::vector<sock_filter> filter;
    filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (const auto& call : calls) {
        filter.push_back(
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call.number), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        die("faults: ptrace");
    ::raise(SIGSTOP);
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        die("faults: seccomp");
    ::execvp(argv[0], argv);
    die(argv[0]);
}

bool regular(pid_t pid, unsigned long long descriptor) {
    struct stat about {};
    std::string path =
        "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(static_cast<int>(descriptor));
    return ::stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode);
}

// openat2 keeps its flags in memory of the caller; the first word of the structure.
unsigned long long open_flags(pid_t pid, const user_regs_struct& regs) {
    switch (regs.orig_rax) {
    case SYS_open:
        return regs.rsi;
    case SYS_openat:
        return regs.rdx;
    case SYS_openat2: {
        errno = 0;
        long flags = ::ptrace(PTRACE_PEEKDATA, pid, regs.rdx, nullptr);
        return errno ? 0 : static_cast<unsigned long long>(flags);
    }
    default:
        return O_CREAT;
    }
}

bool counts(pid_t pid, const user_regs_struct& regs) {
    switch (regs.orig_rax) {
    case SYS_write:
    case SYS_pwrite64:
    case SYS_writev:
    case SYS_pwritev:
    case SYS_sendfile:
        return regular(pid, regs.rdi);
    case SYS_copy_file_range:
        return regular(pid, regs.rdx);
    case SYS_open:
    case SYS_openat:
    case SYS_openat2: {
        auto flags = open_flags(pid, regs);
        return (flags & (O_CREAT | O_TRUNC)) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    }
    default:
        return true;
    }
}

struct run {
    mode what = mode::count;
    long at = 0;
    int error = 0;
    int out = -1, in = -1;
    long seen = 0;
    pid_t first = 0;
    int status = 125;
    std::set<pid_t> alive;
    pid_t busy = 0;            // in step mode: the one whose counted call runs
    std::deque<pid_t> waiting; // to make theirs
};

void kill_all(const run& r) {
    for (pid_t pid : r.alive)
        ::kill(pid, SIGKILL);
}

// Makes the pending call fail: no call is made, and the wanted error stands in its place.
void refuse(pid_t pid, user_regs_struct regs, int error) {
    regs.orig_rax = ~0ULL;
    regs.rax = static_cast<unsigned long long>(-static_cast<long>(error));
    ::ptrace(PTRACE_SETREGS, pid, nullptr, &regs);
}

void tell_step(const run& r, pid_t pid, const user_regs_struct& regs) {
    struct stat about {};
    const std::string path =
        "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(static_cast<int>(regs.rdi));
    const bool known = ::stat(path.c_str(), &about) == 0;
    const std::string line = std::to_string(r.seen) + " " +
                             name_of(static_cast<long>(regs.orig_rax)) + " " +
                             std::to_string(known ? about.st_dev : 0) + " " +
                             std::to_string(known ? about.st_ino : 0) + "\n";
    char go = 0;
    if (::write(r.out, line.data(), line.size()) != static_cast<ssize_t>(line.size()) ||
        ::read(r.in, &go, 1) != 1)
        die("faults: step");
}

// A counted call is about to run. False: everything was killed.
bool before_call(run& r, pid_t pid) {
    user_regs_struct regs{};
    if (::ptrace(PTRACE_GETREGS, pid, nullptr, &regs) != 0 || !counts(pid, regs))
        return true;
    ++r.seen;
    if (r.what == mode::trace)
        std::fprintf(stderr, "call %ld %s\n", r.seen, name_of(static_cast<long>(regs.orig_rax)));
    if (r.what == mode::step)
        tell_step(r, pid, regs);
    if (r.what == mode::kill && r.seen == r.at) {
        kill_all(r);
        return false;
    }
    if ((r.what == mode::fail && r.seen >= r.at) || (r.what == mode::once && r.seen == r.at))
        refuse(pid, regs, r.error);
    return true;
}

bool is_counted(pid_t pid) {
    user_regs_struct regs{};
    return ::ptrace(PTRACE_GETREGS, pid, nullptr, &regs) == 0 && counts(pid, regs);
}

// In step mode: lets the call run, and stops at its end.
void make_call(run& r, pid_t pid) {
    r.busy = pid;
    before_call(r, pid);
    ::ptrace(PTRACE_SYSCALL, pid, nullptr, 0);
}

void call_ended(run& r) {
    r.busy = 0;
    if (r.waiting.empty())
        return;
    const pid_t next = r.waiting.front();
    r.waiting.pop_front();
    make_call(r, next);
}

void ended(run& r, pid_t pid, int status) {
    r.alive.erase(pid);
    r.waiting.erase(std::remove(r.waiting.begin(), r.waiting.end(), pid), r.waiting.end());
    if (r.busy == pid)
        call_ended(r);
    if (pid == r.first)
        r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void go_on(run& r, pid_t pid, int status) {
    int signal = 0;
    int stopped = WSTOPSIG(status);
    int event = status >> 16;
    if (event == PTRACE_EVENT_SECCOMP && r.what == mode::step && is_counted(pid)) {
        if (r.busy != 0)
            r.waiting.push_back(pid);
        else
            make_call(r, pid);
        return;
    }
    if (event == PTRACE_EVENT_SECCOMP) {
        if (r.what != mode::step && !before_call(r, pid))
            return;
    } else if (stopped == (SIGTRAP | 0x80)) {
        call_ended(r);
    } else if (event == 0 && stopped != SIGSTOP && stopped != SIGTRAP) {
        signal = stopped;
    }
    ::ptrace(r.busy == pid ? PTRACE_SYSCALL : PTRACE_CONT, pid, nullptr, signal);
}

int follow(run& r) {
    int status = 0;
    if (::waitpid(r.first, &status, 0) != r.first || !WIFSTOPPED(status))
        die("faults: first stop");
    const long options = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                         PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL |
                         PTRACE_O_TRACESYSGOOD;
    if (::ptrace(PTRACE_SETOPTIONS, r.first, nullptr, options) != 0)
        die("faults: options");
    r.alive.insert(r.first);
    ::ptrace(PTRACE_CONT, r.first, nullptr, 0);
    while (!r.alive.empty()) {
        pid_t pid = ::waitpid(-1, &status, __WALL);
        if (pid < 0)
            break;
        if (WIFEXITED(status) || WIFSIGNALED(status)) {
            ended(r, pid, status);
        } else {
            r.alive.insert(pid);
            go_on(r, pid, status);
        }
    }
    return r.status;
}

bool parse(run& r, int argc, char** argv, int& at) {
    static const struct {
        const char* name;
        mode what;
        int numbers; // that follow it
    } words[] = {{"count", mode::count, 0}, {"trace", mode::trace, 0}, {"kill", mode::kill, 1},
                 {"fail", mode::fail, 2},   {"once", mode::once, 2},   {"step", mode::step, 2}};
    for (const auto& word : words) {
        if (argc < 2 || std::strcmp(argv[1], word.name) != 0)
            continue;
        at = 2 + word.numbers;
        if (at >= argc)
            return false;
        r.what = word.what;
        const int first = word.numbers > 0 ? std::atoi(argv[2]) : 0;
        const int second = word.numbers > 1 ? std::atoi(argv[3]) : 0;
        if (r.what == mode::step)
            r.out = first, r.in = second;
        else
            r.at = first, r.error = second;
        return true;
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    run r;
    int at = 0;
    if (!parse(r, argc, argv, at)) {
        std::fprintf(stderr,
                     "usage: faults count|trace|kill N|fail N ERRNO|once N ERRNO|step OUT IN "
                     "PROGRAM ARG...\n");
        return 125;
    }
    r.first = ::fork();
    if (r.first < 0)
        die("faults: fork");
    if (r.first == 0)
        become(argv + at);
    int status = follow(r);
    if (r.what == mode::count || (r.what == mode::kill && r.seen < r.at))
        std::fprintf(stderr, "calls %ld\n", r.seen);
    return status;
}
