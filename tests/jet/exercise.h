#pragma once
// Drives every parser over an opened database: all rows and columns of every table, the JSON dump and
// index seeks. Used on damaged files, where only the absence of crashes, hangs and leaks matters.
#include "jet/jet.h"
#include "jet/tool.h"

#include <ostream>
#include <streambuf>

namespace jettest
{

struct NullBuf : std::streambuf {
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

inline void exercise(const jet::Database& db)
{
    NullBuf nb;
    std::ostream sink(&nb);
    for (const jet::Table& t : db.tables()) {
        jet::Cursor cur(db, t);
        jet::Value v;
        std::size_t rows = 0;
        for (jet::Status s = cur.rewind(); s == jet::OK && rows < 100000; s = cur.next(), ++rows)
            for (std::size_t k = 0; k < t.columns.size(); ++k)
                (void)cur.column(k, v);
        std::string err;
        (void)jet::dumpTable(db, t, sink, &err);
        for (std::size_t c = 0; c < t.columns.size(); ++c) {
            int idx = db.seekableIndex(t, static_cast<int>(c));
            if (idx < 0) continue;
            jet::KeyBound lo, hi;
            lo.present = hi.present = true;
            lo.value.type = hi.value.type = t.columns[c].type;
            lo.value.null = hi.value.null = false;
            lo.value.i = 1;
            hi.value.i = 1000;
            lo.value.d = 1;
            hi.value.d = 1000;
            std::vector<jet::RowId> ids;
            bool usable = false;
            if (db.indexSeek(t, idx, lo, hi, ids, &usable) == jet::OK && usable) {
                jet::Cursor seek(db, t);
                for (jet::Status s = seek.seek(ids); s == jet::OK; s = seek.next())
                    for (std::size_t k = 0; k < t.columns.size(); ++k)
                        (void)seek.column(k, v);
            }
        }
    }
}

} // namespace jettest
