#pragma once
// A second process for the tests, on Linux and Windows alike: the test program starts itself again with
// JET_TEST_CHILD naming a role, and `childDoes` in a test file does that role's work instead of running the
// tests. Values reach the child through its environment (UTF-8 on both systems).
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace jettest
{

#ifdef _WIN32
inline std::wstring widen(const std::string& s)
{
    int n = ::MultiByteToWideChar(CP_UTF8, 0, s.data(), int(s.size()), nullptr, 0);
    std::wstring w(std::size_t(n > 0 ? n : 0), L'\0');
    if (n > 0) ::MultiByteToWideChar(CP_UTF8, 0, s.data(), int(s.size()), w.data(), n);
    return w;
}
#endif

// A variable of this process's environment as UTF-8; "" when unset.
inline std::string envValue(const std::string& name)
{
#ifdef _WIN32
    wchar_t buf[32768];
    DWORD n = ::GetEnvironmentVariableW(widen(name).c_str(), buf, 32768);
    if (n == 0 || n >= 32768) return {};
    int k = ::WideCharToMultiByte(CP_UTF8, 0, buf, int(n), nullptr, 0, nullptr, nullptr);
    std::string s(std::size_t(k), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, buf, int(n), s.data(), k, nullptr, nullptr);
    return s;
#else
    const char* v = std::getenv(name.c_str());
    return v ? v : "";
#endif
}

inline void setEnv(const std::string& name, const std::string* value)
{
#ifdef _WIN32
    ::SetEnvironmentVariableW(widen(name).c_str(), value ? widen(*value).c_str() : nullptr);
#else
    if (value)
        ::setenv(name.c_str(), value->c_str(), 1);
    else
        ::unsetenv(name.c_str());
#endif
}

// Registers `work` (which ends the process) to run instead of the tests when this process was started as
// `role`. It runs once the program's main has begun: every static of the engine is made by then.
inline bool childDoes(const std::string& role, std::function<void()> work)
{
    if (envValue("JET_TEST_CHILD") != role) return false;
    struct Work : testing::Environment {
        std::function<void()> work;
        void SetUp() override { work(); }
    };
    auto* w = new Work;
    w->work = std::move(work);
    testing::AddGlobalTestEnvironment(w);
    return true;
}

class Child
{
public:
    Child() = default;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    // A child still running is killed: a failed test leaves nothing behind.
    ~Child()
    {
        kill();
        wait();
    }

    // This test program again, as `role`, with `env` added to its environment.
    bool start(const std::string& role, const std::vector<std::pair<std::string, std::string>>& env = {})
    {
        std::vector<std::pair<std::string, std::string>> all = env;
        all.emplace_back("JET_TEST_CHILD", role);
        for (const auto& [k, v] : all)
            setEnv(k, &v);
        bool ok = spawn();
        for (const auto& [k, v] : all)
            setEnv(k, nullptr);
        return ok;
    }

    // The child's exit code; -1 when it was killed or could not be waited for.
    int wait()
    {
#ifdef _WIN32
        if (!process_) return -1;
        ::WaitForSingleObject(process_, INFINITE);
        DWORD code = 0;
        bool ok = ::GetExitCodeProcess(process_, &code);
        ::CloseHandle(process_);
        process_ = nullptr;
        return ok && !killed_ ? int(code) : -1;
#else
        if (pid_ <= 0) return -1;
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
    }

    void kill()
    {
        killed_ = true;
#ifdef _WIN32
        if (process_) ::TerminateProcess(process_, 137);
#else
        if (pid_ > 0) ::kill(pid_, SIGKILL);
#endif
    }

private:
    bool spawn()
    {
        killed_ = false;
#ifdef _WIN32
        wchar_t self[32768];
        DWORD n = ::GetModuleFileNameW(nullptr, self, 32768);
        if (n == 0 || n >= 32768) return false;
        std::wstring cmd = L"\"" + std::wstring(self, n) + L"\"";
        STARTUPINFOW si{};
        si.cb = sizeof si;
        PROCESS_INFORMATION pi{};
        if (!::CreateProcessW(self, cmd.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi)) return false;
        ::CloseHandle(pi.hThread);
        process_ = pi.hProcess;
        return true;
#else
        char* argv[] = {const_cast<char*>("/proc/self/exe"), nullptr};
        return ::posix_spawn(&pid_, "/proc/self/exe", nullptr, nullptr, argv, environ) == 0;
#endif
    }

#ifdef _WIN32
    HANDLE process_ = nullptr;
#else
    pid_t pid_ = -1;
#endif
    bool killed_ = false;
};

} // namespace jettest
