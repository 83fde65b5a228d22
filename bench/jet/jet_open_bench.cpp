// Opening a Jet file and reading one row, on a small home and a large one (`pel008-batch demo --jet` with 300 and
// with 100 000 orders): the best time of several runs and the peak memory of a process doing only that, and the
// large against the small as ratios. It prints the numbers; it never judges them.
// Usage: jet_open_bench SMALL_FILE LARGE_FILE TABLE [password] [rounds]
// (the demo homes' data1.dat carries the program's database password)
#include "jet/jet.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{

struct Result {
    double ms = 0;
    long peakKiB = 0;
    bool ok = false;
};

// One run in a child of its own, so that its peak memory is that of the open and the read alone.
Result once(const std::string& path, const std::string& table, const std::string& password)
{
    int fds[2];
    if (::pipe(fds) != 0) return {};
    pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        Result r;
        auto t0 = std::chrono::steady_clock::now();
        jet::Database db;
        if (db.open(path, password) == jet::OK) {
            if (const jet::Table* t = db.table(table)) {
                jet::Cursor cur(db, *t);
                jet::Value v;
                r.ok = cur.rewind() == jet::OK; // a table with a row to read
                for (std::size_t k = 0; r.ok && k < t->columns.size(); ++k)
                    r.ok = cur.column(k, v) == jet::OK;
            }
        }
        r.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
        struct rusage ru {
        };
        ::getrusage(RUSAGE_SELF, &ru);
        r.peakKiB = ru.ru_maxrss;
        if (::write(fds[1], &r, sizeof r) != sizeof r) ::_exit(1);
        ::_exit(0);
    }
    ::close(fds[1]);
    Result r;
    if (::read(fds[0], &r, sizeof r) != sizeof r) r.ok = false;
    ::close(fds[0]);
    ::waitpid(pid, nullptr, 0);
    return r;
}

Result best(const std::string& path, const std::string& table, const std::string& password, int rounds)
{
    Result b;
    for (int i = 0; i < rounds; ++i) {
        Result r = once(path, table, password);
        if (!r.ok) return r;
        if (!b.ok || r.ms < b.ms) b.ms = r.ms;
        if (!b.ok || r.peakKiB > b.peakKiB) b.peakKiB = r.peakKiB;
        b.ok = true;
    }
    return b;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: jet_open_bench SMALL_FILE LARGE_FILE TABLE [password] [rounds]\n");
        return 2;
    }
    std::string table = argv[3], password = argc > 4 ? argv[4] : "";
    int rounds = argc > 5 ? std::atoi(argv[5]) : 7;
    Result small = best(argv[1], table, password, rounds), large = best(argv[2], table, password, rounds);
    if (!small.ok || !large.ok) {
        std::fprintf(stderr, "cannot open and read a row of %s\n", small.ok ? argv[2] : argv[1]);
        return 1;
    }
    std::printf("open and read one row: small %.2f ms, %.1f MiB peak; large %.2f ms, %.1f MiB peak\n", small.ms,
                small.peakKiB / 1024.0, large.ms, large.peakKiB / 1024.0);
    std::printf("large/small time: %.2fx; peak memory: %+.1f MiB\n", large.ms / small.ms,
                (large.peakKiB - small.peakKiB) / 1024.0);
    return 0;
}
