// Payment import benchmark: a fixed-width result file of many records imported by "pel008-batch import-payments"
// into the 100 000-order demo (no pause before the payment checks), against sqlite3 running the same statements
// per record (order lookup, payment check, edit-or-add of inmoney and of cdai, one transaction per posting), and
// the runner's peak memory for two file sizes, which must stay flat as the file grows.
// usage: payment-bench --batch PATH [--sqlite3 PATH] [--orders N] [--records N,N]
// Prints only; never judges.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

double nowS()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

struct Result {
    int status = -1;
    double seconds = 0;
    long rssKiB = 0;
};

// Runs a command with stdin from a file (or /dev/null) and stdout/stderr to /dev/null.
Result run(const std::vector<std::string>& command, const std::string& input = "/dev/null")
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> argv;
    for (const auto& a : command)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    Result r;
    const double start = nowS();
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return r;
    }
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    while (wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    r.seconds = nowS() - start;
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.rssKiB = usage.ru_maxrss;
    return r;
}

std::string digits(long long v, int width)
{
    std::string s = std::to_string(v);
    return s.size() >= static_cast<size_t>(width) ? s : std::string(static_cast<size_t>(width) - s.size(), '0') + s;
}

std::string pad80(std::string s)
{
    s.resize(80, ' ');
    return s;
}

// The record of number i: order i of the demo, mostly 速報, every tenth a postal transfer, every fiftieth a
// cancellation (never posted).
struct Rec {
    std::string code;
    long long denno, money;
};
Rec recordOf(long long i, int orders)
{
    const long long denno = 1 + (i % orders);
    const std::string code = i % 50 == 49 ? "03" : i % 10 == 9 ? "12" : "01";
    return {code, denno, 1000 + (i * 37) % 20000};
}

constexpr const char* kPayDay = "20261120";

bool writeMt(const std::string& path, long long records, int orders)
{
    std::ofstream f(path, std::ios::binary);
    f << pad80("1908997" + std::string(kPayDay) + "BENCH") << "\r\n";
    long long sokuk = 0, sokum = 0, postalK = 0, postalM = 0, torik = 0, torim = 0;
    for (long long i = 0; i < records; ++i) {
        const Rec r = recordOf(i, orders);
        f << pad80("2" + r.code + digits(r.denno, 14) + "08997" + "1234" + kPayDay + "1030" + digits(r.money, 10) +
                   "0001" + "0012345")
          << "\r\n";
        if (r.code == "01")
            ++sokuk, sokum += r.money;
        else if (r.code == "12")
            ++postalK, postalM += r.money;
        else
            ++torik, torim += r.money;
    }
    f << pad80("8" + digits(sokuk, 6) + digits(sokum, 10) + digits(0, 6) + digits(0, 10) + digits(torik, 6) +
               digits(torim, 10) + digits(postalK, 6) + digits(postalM, 10))
      << "\r\n";
    return static_cast<bool>(f);
}

// What the import does per record, as plain statements; a cancellation is looked up and checked only.
bool writeSql(const std::string& path, long long records, int orders)
{
    std::ofstream f(path, std::ios::binary);
    f << "PRAGMA synchronous = NORMAL;\n";
    const std::string now = "'2026/11/23 10:00:00'";
    for (long long i = 0; i < records; ++i) {
        const Rec r = recordOf(i, orders);
        const std::string n = std::to_string(r.denno), m = std::to_string(r.money);
        f << "select * from jyuden d,member m where d.mcode=m.code and d.denno=" << n << ";\n";
        f << "select * from inmoney where denno=" << n << ";\n";
        if (r.code == "03")
            continue;
        f << "BEGIN;\n";
        f << "select * from inmoney where denno=" << n << " and nday=" << kPayDay << ";\n";
        f << "update inmoney set denno=" << n << ",nday=" << kPayDay << ",pcode=6,money=" << m
          << ",inflag=1,sdate=" << now << " where denno=" << n << " and nday=" << kPayDay << ";\n";
        f << "insert into inmoney (denno,nday,pcode,money,inflag,sdate) select " << n << "," << kPayDay << ",6," << m
          << ",1," << now << " where changes()=0;\n";
        f << "select mcode from jyuden where denno=" << n << ";\n";
        // the customer code as the text the program binds, so that the ledger's index is used as it is there
        const std::string where = std::string(" where mcode = cast((select mcode from jyuden where denno=") + n +
                                  ") as text) and day = " + kPayDay + " and kubun = 3 and denno = " + n +
                                  " and line = 1";
        f << "select * from cdai" << where << ";\n";
        f << "update cdai set day=" << kPayDay << ",kubun=3,denno=" << n << ",line=1" << where << ";\n";
        f << "insert into cdai (mcode,day,kubun,denno,line) select cast(mcode as text)," << kPayDay << ",3," << n
          << ",1 from jyuden where denno=" << n << " and changes()=0;\n";
        f << "COMMIT;\n";
    }
    return static_cast<bool>(f);
}

bool copyFile(const std::string& from, const std::string& to)
{
    std::ifstream in(from, std::ios::binary);
    if (!in)
        return false;
    std::ofstream out(to, std::ios::binary);
    out << in.rdbuf();
    return static_cast<bool>(out);
}

// A home of its own for one run: the demo's database and its settings without the pause before each check.
bool makeHome(const std::string& base, const std::string& home)
{
    if (mkdir(home.c_str(), 0700) != 0 && errno != EEXIST)
        return false;
    std::ifstream ini(base + "/mirabo.ini", std::ios::binary);
    std::stringstream text;
    text << ini.rdbuf();
    std::string s = text.str();
    const auto at = s.find("CheckWait=");
    if (at == std::string::npos)
        s += "[CvsRead]\r\nCheckWait=0\r\n";
    else
        s.replace(at, s.find_first_of("\r\n", at) - at, "CheckWait=0");
    std::ofstream(home + "/mirabo.ini", std::ios::binary) << s;
    return copyFile(base + "/data1.dat", home + "/data1.dat");
}

std::vector<long long> parseList(const char* text)
{
    std::vector<long long> v;
    std::stringstream s(text);
    std::string item;
    while (std::getline(s, item, ','))
        v.push_back(std::atoll(item.c_str()));
    return v;
}

} // namespace

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // each result as it comes
    std::string batch, sqlite3 = "sqlite3";
    int orders = 100000;
    std::vector<long long> sizes{10000, 100000};
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string a = argv[i];
        if (a == "--batch")
            batch = argv[i + 1];
        else if (a == "--sqlite3")
            sqlite3 = argv[i + 1];
        else if (a == "--orders")
            orders = std::atoi(argv[i + 1]);
        else if (a == "--records")
            sizes = parseList(argv[i + 1]);
    }
    if (batch.empty() || orders <= 0 || sizes.empty()) {
        std::fprintf(stderr, "usage: payment-bench --batch PATH [--sqlite3 PATH] [--orders N] [--records N,N]\n");
        return 2;
    }
    char tmpl[] = "/tmp/pel008-payment-bench.XXXXXX";
    if (!mkdtemp(tmpl)) {
        std::perror("mkdtemp");
        return 0;
    }
    const std::string dir = tmpl, base = dir + "/base";
    Result demo = run({batch, "--home", base, "demo", "--orders", std::to_string(orders)});
    std::printf("demo home of %d orders: %.1f s (exit %d)\n", orders, demo.seconds, demo.status);
    if (demo.status != 0) {
        std::printf("payment-bench: the demo home could not be made\n");
        return 0;
    }
    Result last;
    for (const long long n : sizes) {
        const std::string home = dir + "/run" + std::to_string(n), file = dir + "/MT" + std::to_string(n) + ".txt";
        if (!makeHome(base, home) || !writeMt(file, n, orders)) {
            std::printf("payment-bench: cannot prepare %lld records\n", n);
            return 0;
        }
        last = run({batch, "--home", home, "--yes", "import-payments", file});
        std::printf("pel008-batch import-payments, %7lld records: %8.2f s  %7.0f records/s  peak RSS %6.1f MiB"
                    "  (exit %d)\n",
                    n, last.seconds, static_cast<double>(n) / last.seconds, static_cast<double>(last.rssKiB) / 1024,
                    last.status);
    }
    const long long n = sizes.back();
    const std::string home = dir + "/sqlite3", script = dir + "/statements.sql";
    if (!makeHome(base, home) || !writeSql(script, n, orders)) {
        std::printf("payment-bench: cannot prepare the baseline\n");
        return 0;
    }
    const Result baseline = run({sqlite3, home + "/data1.dat"}, script);
    std::printf("sqlite3, the same statements,      %7lld records: %8.2f s  (exit %d)\n", n, baseline.seconds,
                baseline.status);
    if (baseline.status == 0 && baseline.seconds > 0)
        std::printf("ratio pel008 / sqlite3: %.2f  (goal: at most 3)\n", last.seconds / baseline.seconds);
    std::string rm = "rm -rf '" + dir + "'";
    if (std::system(rm.c_str()) != 0)
        std::printf("payment-bench: %s left behind\n", dir.c_str());
    return 0;
}
