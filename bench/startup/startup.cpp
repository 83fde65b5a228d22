// Start-up benchmark: process start to first screen shown, against a bare Qt window, and the peak resident memory.
// usage: startup-bench [--runs N] [--bare PATH] [--batch PATH] -- PROGRAM [ARGS...]
// With --batch, a fresh demo home is made with "PATH --home DIR demo" (every screen opens on it) and handed to the
// program as PEL008_HOME. Prints only; never judges. Besides the wall time it prints the processor time of the
// process, which a busy machine disturbs far less.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

long long nowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

struct Run {
    double ms = -1;    // start to shown; -1 when the program never reported
    double cpuMs = -1; // user + system time of the process
    long rssKiB = 0;   // peak resident set
};

Run runOnce(const std::vector<std::string>& command)
{
    int pipefd[2];
    if (pipe(pipefd) != 0)
        return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipefd[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipefd[0]);
    std::vector<char*> argv;
    for (const auto& a : command)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = 0;
    const long long start = nowNs();
    const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipefd[1]);
    Run run;
    if (rc != 0) {
        std::fprintf(stderr, "cannot start %s: %s\n", argv[0], std::strerror(rc));
        close(pipefd[0]);
        return run;
    }
    std::string out;
    char buf[256];
    ssize_t n;
    while ((n = read(pipefd[0], buf, sizeof buf)) > 0)
        out.append(buf, static_cast<size_t>(n));
    close(pipefd[0]);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    run.rssKiB = usage.ru_maxrss;
    run.cpuMs = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
                static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
    const size_t at = out.find("shown ");
    if (at != std::string::npos)
        run.ms = static_cast<double>(std::atoll(out.c_str() + at + 6) - start) / 1e6;
    return run;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? -1 : v[v.size() / 2];
}

std::string makeHome(const std::string& batch)
{
    char dir[] = "/tmp/pel008-bench-XXXXXX";
    if (!mkdtemp(dir))
        return {};
    const std::string cmd = "'" + batch + "' --home '" + dir + "' demo >/dev/null 2>&1";
    if (std::system(cmd.c_str()) != 0)
        std::fprintf(stderr, "demo failed in %s\n", dir);
    return dir;
}

} // namespace

int main(int argc, char** argv)
{
    int runs = 7;
    std::string bare, batch;
    std::vector<std::string> program;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--runs" && i + 1 < argc)
            runs = std::max(1, std::atoi(argv[++i]));
        else if (a == "--bare" && i + 1 < argc)
            bare = argv[++i];
        else if (a == "--batch" && i + 1 < argc)
            batch = argv[++i];
        else if (a == "--") {
            for (++i; i < argc; ++i)
                program.emplace_back(argv[i]);
        }
    }
    if (program.empty() || bare.empty()) {
        std::fprintf(stderr, "usage: startup-bench [--runs N] --bare PATH [--batch PATH] -- PROGRAM [ARGS...]\n");
        return 2;
    }
    setenv("PEL008_STARTUP_PROBE", "1", 1);
    setenv("PEL008_NO_DIALOGS", "1", 1);
    setenv("QT_QPA_PLATFORM", std::getenv("QT_QPA_PLATFORM") ? std::getenv("QT_QPA_PLATFORM") : "offscreen", 1);
    if (!batch.empty()) {
        const std::string home = makeHome(batch);
        setenv("PEL008_HOME", home.c_str(), 1);
    }
    // One warm-up each so that both start from a warm file cache, then alternate.
    runOnce({bare});
    runOnce(program);
    // The same window with one line of Japanese text: what drawing any text costs (font configuration, a CJK
    // font), which the empty window never pays.
    const std::vector<std::string> textWindow{bare, "--text"};
    std::vector<double> bareMs, progMs, textMs, textCpu, progCpu;
    long bareRss = 0, progRss = 0;
    int failed = 0;
    for (int i = 0; i < runs; ++i) {
        const Run b = runOnce({bare});
        const Run t = runOnce(textWindow);
        const Run p = runOnce(program);
        if (b.ms < 0 || p.ms < 0 || t.ms < 0) {
            ++failed;
            continue;
        }
        bareMs.push_back(b.ms);
        textMs.push_back(t.ms);
        progMs.push_back(p.ms);
        textCpu.push_back(t.cpuMs);
        progCpu.push_back(p.cpuMs);
        bareRss = std::max(bareRss, b.rssKiB);
        progRss = std::max(progRss, p.rssKiB);
    }
    if (progMs.empty()) {
        std::printf("the program never reported its first screen (%d runs)\n", failed);
        return 1;
    }
    if (!batch.empty()) {
        const std::string cmd = std::string("rm -rf '") + std::getenv("PEL008_HOME") + "'";
        (void)std::system(cmd.c_str());
    }
    std::string what;
    for (const auto& a : program)
        what += what.empty() ? a.substr(a.find_last_of('/') + 1) : " " + a;
    std::printf("== %s\n", what.c_str());
    const double bm = median(bareMs), pm = median(progMs);
    std::printf("first screen: %.1f ms   bare window: %.1f ms   ratio %.2f (goal <= 1.3)   runs %zu\n", pm, bm,
                pm / bm, progMs.size());
    const double tm = median(textMs);
    std::printf("              text window: %.1f ms   ratio %.2f   (the empty window draws no text)\n", tm, pm / tm);
    const double tc = median(textCpu), pc = median(progCpu);
    std::printf("processor:   %.1f ms   text window: %.1f ms   ratio %.2f\n", pc, tc, pc / tc);
    std::printf("peak resident: %.1f MiB (goal <= 80)   bare window: %.1f MiB\n", progRss / 1024.0,
                bareRss / 1024.0);
    return 0;
}
