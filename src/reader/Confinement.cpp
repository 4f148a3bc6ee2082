#include "reader/Confinement.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/prctl.h>
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <unistd.h>

namespace Confinement {
namespace {

// Calls allowed whatever their arguments. Writing is allowed on descriptors already open: the only ones
// writable are the answer pipe and standard error, since no file can be opened for writing.
constexpr int allowed[] = {
    // reading files and the request pipe
    SCMP_SYS(read),
    SCMP_SYS(readv),
    SCMP_SYS(pread64),
    SCMP_SYS(preadv),
    SCMP_SYS(lseek),
    SCMP_SYS(close),
    SCMP_SYS(fstat),
    SCMP_SYS(newfstatat),
    SCMP_SYS(stat),
    SCMP_SYS(lstat),
    SCMP_SYS(statx),
    SCMP_SYS(fstatfs),
    SCMP_SYS(statfs),
    SCMP_SYS(getdents64),
    SCMP_SYS(readlink),
    SCMP_SYS(readlinkat),
    SCMP_SYS(access),
    SCMP_SYS(faccessat),
    SCMP_SYS(faccessat2),
    SCMP_SYS(getcwd),
    SCMP_SYS(fcntl),
    SCMP_SYS(dup),
    SCMP_SYS(poll),
    SCMP_SYS(ppoll),
    // a pipe within the process (the sanitizers probe memory through one)
    SCMP_SYS(pipe2),
    SCMP_SYS(fadvise64),
    // answers and messages
    SCMP_SYS(write),
    SCMP_SYS(writev),
    // memory
    SCMP_SYS(brk),
    SCMP_SYS(mmap),
    SCMP_SYS(munmap),
    SCMP_SYS(mremap),
    SCMP_SYS(mprotect),
    SCMP_SYS(madvise),
    // threads
    SCMP_SYS(futex),
    SCMP_SYS(set_robust_list),
    SCMP_SYS(get_robust_list),
    SCMP_SYS(rseq),
    SCMP_SYS(set_tid_address),
    SCMP_SYS(sched_yield),
    SCMP_SYS(sched_getaffinity),
    SCMP_SYS(exit),
    SCMP_SYS(exit_group),
    SCMP_SYS(rt_sigaction),
    SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn),
    SCMP_SYS(sigaltstack),
    SCMP_SYS(getpid),
    SCMP_SYS(gettid),
    SCMP_SYS(getppid),
    SCMP_SYS(getuid),
    SCMP_SYS(geteuid),
    SCMP_SYS(getgid),
    SCMP_SYS(getegid),
    SCMP_SYS(sysinfo),
    SCMP_SYS(uname),
    SCMP_SYS(getrandom),
    // clocks
    SCMP_SYS(clock_gettime),
    SCMP_SYS(clock_getres),
    SCMP_SYS(gettimeofday),
    SCMP_SYS(time),
    SCMP_SYS(clock_nanosleep),
    SCMP_SYS(nanosleep),
};

// Calls that change files: they fail as if permission were missing.
constexpr int refused[] = {
    SCMP_SYS(creat),
    SCMP_SYS(mkdir),
    SCMP_SYS(mkdirat),
    SCMP_SYS(unlink),
    SCMP_SYS(unlinkat),
    SCMP_SYS(rmdir),
    SCMP_SYS(rename),
    SCMP_SYS(renameat),
    SCMP_SYS(renameat2),
    SCMP_SYS(link),
    SCMP_SYS(linkat),
    SCMP_SYS(symlink),
    SCMP_SYS(symlinkat),
    SCMP_SYS(chmod),
    SCMP_SYS(fchmod),
    SCMP_SYS(fchmodat),
    SCMP_SYS(truncate),
    SCMP_SYS(ftruncate),
    SCMP_SYS(utimensat),
    SCMP_SYS(fallocate),
    SCMP_SYS(flock),
    SCMP_SYS(fsync),
    SCMP_SYS(fdatasync),
};

struct Filter {
    scmp_filter_ctx context;
    ~Filter() { seccomp_release(context); }
};

QString failed(const char *what, int result)
{
    return QString::fromLatin1(what) + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(-result));
}

} // namespace

std::optional<QString> apply()
{
    Filter filter { seccomp_init(SCMP_ACT_KILL_PROCESS) };
    if (!filter.context)
        return QStringLiteral("seccomp couldn't start");
    // Threads started before the filter get it too.
    int result = seccomp_attr_set(filter.context, SCMP_FLTATR_CTL_TSYNC, 1);
    const auto add = [&](uint32_t action, int call, unsigned count, const scmp_arg_cmp *arguments) {
        if (result == 0)
            result = seccomp_rule_add_array(filter.context, action, call, count, arguments);
    };
    for (int call : allowed)
        add(SCMP_ACT_ALLOW, call, 0, nullptr);
    for (int call : refused)
        add(SCMP_ACT_ERRNO(EACCES), call, 0, nullptr);

    // Opening: read-only without creating is allowed; for writing, or creating, it fails.
    const scmp_datum_t modeAndCreate = O_ACCMODE | O_CREAT;
    for (const auto &[call, flags] : { std::pair { SCMP_SYS(openat), 2u }, std::pair { SCMP_SYS(open), 1u } }) {
        const scmp_arg_cmp readOnly[] = { { flags, SCMP_CMP_MASKED_EQ, modeAndCreate, O_RDONLY } };
        add(SCMP_ACT_ALLOW, call, 1, readOnly);
        for (const scmp_datum_t mode : { scmp_datum_t(O_WRONLY), scmp_datum_t(O_RDWR) }) {
            const scmp_arg_cmp writing[] = { { flags, SCMP_CMP_MASKED_EQ, O_ACCMODE, mode } };
            add(SCMP_ACT_ERRNO(EACCES), call, 1, writing);
        }
        const scmp_arg_cmp creating[] = { { flags, SCMP_CMP_MASKED_EQ, O_CREAT, O_CREAT } };
        add(SCMP_ACT_ERRNO(EACCES), call, 1, creating);
    }
    // Threads, but no new processes. glibc tries clone3 first and falls back to clone when it is missing;
    // clone3's flags sit in memory, where the filter can't look.
    const scmp_arg_cmp thread[] = { { 0, SCMP_CMP_MASKED_EQ, CLONE_THREAD, CLONE_THREAD } };
    add(SCMP_ACT_ALLOW, SCMP_SYS(clone), 1, thread);
    add(SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0, nullptr);
    // Naming a thread, and signals to its own threads (abort raises SIGABRT this way).
    for (const scmp_datum_t option : { scmp_datum_t(PR_SET_NAME), scmp_datum_t(PR_GET_NAME) }) {
        const scmp_arg_cmp naming[] = { { 0, SCMP_CMP_EQ, option, 0 } };
        add(SCMP_ACT_ALLOW, SCMP_SYS(prctl), 1, naming);
    }
    const scmp_arg_cmp ownProcess[] = { { 0, SCMP_CMP_EQ, scmp_datum_t(::getpid()), 0 } };
    add(SCMP_ACT_ALLOW, SCMP_SYS(tgkill), 1, ownProcess);
    // Limits may be read, never changed.
    const scmp_arg_cmp readingLimits[] = { { 0, SCMP_CMP_EQ, 0, 0 }, { 2, SCMP_CMP_EQ, 0, 0 } };
    add(SCMP_ACT_ALLOW, SCMP_SYS(prlimit64), 2, readingLimits);
    add(SCMP_ACT_ALLOW, SCMP_SYS(getrlimit), 0, nullptr);
    // Asking whether a descriptor is a terminal: it isn't.
    add(SCMP_ACT_ERRNO(ENOTTY), SCMP_SYS(ioctl), 0, nullptr);
    if (result != 0)
        return failed("seccomp rule", result);

    if ((result = seccomp_load(filter.context)) != 0)
        return failed("seccomp", result);
    return std::nullopt;
}

} // namespace Confinement
