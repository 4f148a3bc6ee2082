// Confines itself as the reader does, then makes the one call named by its argument. Exit status 0: the
// call was allowed (reading, a thread) or failed with EACCES (writing); 1: it behaved otherwise; 2:
// the confinement couldn't be applied. A forbidden call ends the process by SIGSYS.
#include "reader/Confinement.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

int probe(std::string_view call, const std::string &path)
{
    if (const std::optional<QString> problem = Confinement::apply()) {
        std::fprintf(stderr, "%s\n", problem->toLocal8Bit().constData());
        return 2;
    }
    if (call == "read") {
        const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        char byte = 0;
        bool read = file >= 0 && ::read(file, &byte, 1) >= 0;
        std::thread([&] { read = read && ::close(file) == 0; }).join();
        return read ? 0 : 1;
    }
    if (call == "write") {
        // An existing file, for writing or for both; a new one, even read-only.
        for (const auto &[file, flags] : { std::pair { path, O_WRONLY | O_TRUNC }, std::pair { path, O_RDWR },
                 std::pair { path + ".new", O_RDONLY | O_CREAT } }) {
            errno = 0;
            if (::open(file.c_str(), flags, 0600) >= 0 || errno != EACCES)
                return 1;
        }
        return 0;
    }
    if (call == "socket")
        ::socket(AF_INET, SOCK_STREAM, 0);
    else if (call == "exec")
        ::execl("/bin/true", "true", nullptr);
    else if (call == "ptrace")
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    else if (call == "fork")
        ::fork();
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    // Straight out: a leak check at exit would trace the process, which the filter forbids.
    ::_exit(argc < 3 ? 1 : probe(argv[1], argv[2]));
}
