#pragma once
#include "jet/jet.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace jettest
{

inline std::string corpus(const std::string& name)
{
    return std::string(JET_CORPUS) + "/" + name;
}

inline std::vector<std::string> corpusFiles()
{
    std::vector<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(JET_CORPUS))
        if (e.path().extension() == ".mdb") out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

inline std::string passwordOf(const std::string& file)
{
    return file == "passwordV2000.mdb" ? "password" : "";
}

inline std::vector<std::uint8_t> readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The mdb tools the engine is compared with are Linux programs; where they cannot run, those comparisons skip.
inline bool mdbToolsRun()
{
#ifdef _WIN32
    return false;
#else
    return true;
#endif
}
#define JET_NEEDS_MDB_TOOLS()                                                                                          \
    if (!jettest::mdbToolsRun()) GTEST_SKIP() << "the mdb tools do not run on this system"

inline std::string run(const std::string& cmd)
{
    std::string out;
#ifdef _WIN32
    (void)cmd;
    return out;
#else
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return out;
    char buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
        out.append(buf, n);
    pclose(p);
    return out;
#endif
}

// A folder of its own under the temporary folder, named in UTF-8; removed with everything in it at the end, by the
// process that made it (not by a forked child).
struct ScratchDir {
    pid_t owner = ::getpid();
    std::filesystem::path dir;
    explicit ScratchDir(const std::string& utf8Name)
    {
        const std::string name = utf8Name + "-" + std::to_string(owner);
        dir = std::filesystem::temp_directory_path() / std::filesystem::path(std::u8string(name.begin(), name.end()));
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        if (::getpid() == owner) std::filesystem::remove_all(dir, ignored);
    }
    // A file in the folder, as a UTF-8 path.
    std::string operator/(const std::string& name) const
    {
        auto s = (dir / std::filesystem::path(std::u8string(name.begin(), name.end()))).u8string();
        return std::string(s.begin(), s.end());
    }
};

// A scratch copy of a corpus file, in one folder a test process: the corpus itself is never written.
inline std::string scratchCopy(const std::string& file, const std::string& as)
{
    static const ScratchDir folder("jet-test");
    const std::string dst = folder / as;
    std::filesystem::copy_file(corpus(file), dst, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::permissions(dst, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
    return dst;
}

// Inconsistencies the engine's check finds, one a line; "" when clean.
inline std::string problemsOf(jet::Database& db)
{
    std::vector<std::string> problems;
    if (db.check(problems) != jet::OK) return "cannot check: " + db.error();
    std::string all;
    for (const std::string& p : problems)
        all += p + "\n";
    return all;
}

inline std::string checkProblems(const std::string& path, const std::string& password = "")
{
    jet::Database db;
    if (db.open(path, password) != jet::OK) return "cannot open: " + db.error();
    return problemsOf(db);
}

// A corpus file copied twice: `base` as it was, `path` to work on; reset() copies it again and drops its journal.
struct WorkCopy {
    std::string base, path;
    WorkCopy(const std::string& file, const std::string& as) : base(scratchCopy(file, as)), path(base + ".work")
    {
        reset();
    }
    void reset() const
    {
        std::filesystem::remove(path); // MinGW's copy_file does not overwrite
        std::filesystem::copy_file(base, path);
        std::filesystem::remove(path + "-pel008-journal");
    }
};

// Pages of `after` that differ from `before` or are new.
inline long changedPages(const std::vector<std::uint8_t>& before, const std::vector<std::uint8_t>& after)
{
    long changed = 0;
    for (std::size_t at = 0; at < after.size(); at += jet::kPageSize)
        changed += at >= before.size() || std::memcmp(&after[at], &before[at], jet::kPageSize) != 0;
    return changed;
}

} // namespace jettest
