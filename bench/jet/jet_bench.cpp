// Full read of every table of the corpus, repeated, against mdb-export on the same files.
// Prints rows per second for both and their ratio; it never judges the numbers.
// Usage: jet_bench [corpus dir] [rounds]
#include "jet/jet.h"
#include "jet/tool.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

namespace
{

struct NullBuf : std::streambuf {
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

double seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

} // namespace

int main(int argc, char** argv)
{
    std::string dir = argc > 1 ? argv[1] : JET_CORPUS;
    int rounds = argc > 2 ? std::atoi(argv[2]) : 5;
    std::vector<std::string> files;
    for (const auto& e : std::filesystem::directory_iterator(dir))
        if (e.path().extension() == ".mdb") files.push_back(e.path().string());

    struct Job {
        std::string file, password, table;
    };
    std::vector<Job> jobs;
    for (const std::string& f : files) {
        std::string pw = f.find("passwordV2000") != std::string::npos ? "password" : "";
        jet::Database db;
        if (db.open(f, pw) != jet::OK) {
            std::fprintf(stderr, "skip %s: %s\n", f.c_str(), db.error().c_str());
            continue;
        }
        for (const jet::Table& t : db.tables())
            jobs.push_back({f, pw, t.name});
    }

    // Ours: open each file, read every table to JSON lines (formatting included, as mdb-export formats CSV).
    NullBuf nb;
    std::ostream sink(&nb);
    std::uint64_t rows = 0;
    auto start = std::chrono::steady_clock::now();
    for (int r = 0; r < rounds; ++r) {
        for (const Job& j : jobs) {
            jet::Database db;
            if (db.open(j.file, j.password) != jet::OK) continue;
            const jet::Table* t = db.table(j.table);
            jet::Cursor cur(db, *t);
            for (jet::Status s = cur.rewind(); s == jet::OK; s = cur.next())
                ++rows;
            std::string err;
            jet::dumpTable(db, *t, sink, &err);
        }
    }
    double ours = seconds(start);
    double oursRate = static_cast<double>(rows) / ours;

    // mdb-export: one process per table, as a script would run it.
    std::uint64_t theirRows = 0;
    start = std::chrono::steady_clock::now();
    for (int r = 0; r < rounds; ++r) {
        for (const Job& j : jobs) {
            // Rows end in \x1e: text may hold newlines.
            std::string cmd =
                "mdb-export -H -b hex -R '\x1e' '" + j.file + "' '" + j.table + "' 2>/dev/null | tr -cd '\036' | wc -c";
            FILE* p = popen(cmd.c_str(), "r");
            if (!p) continue;
            unsigned long n = 0;
            if (std::fscanf(p, "%lu", &n) == 1) theirRows += n;
            pclose(p);
        }
    }
    double theirs = seconds(start);
    double theirRate = static_cast<double>(theirRows) / theirs;

    std::printf("tables: %zu, rounds: %d\n", jobs.size(), rounds);
    std::printf("jet engine : %10llu rows in %7.3f s = %12.0f rows/s\n", static_cast<unsigned long long>(rows), ours,
                oursRate);
    std::printf("mdb-export : %10llu rows in %7.3f s = %12.0f rows/s\n", static_cast<unsigned long long>(theirRows),
                theirs, theirRate);
    std::printf("ratio      : %.1fx mdb-export's rows per second\n", theirRate > 0 ? oursRate / theirRate : 0.0);
    return 0;
}
