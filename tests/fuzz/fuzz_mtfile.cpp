// libFuzzer target for an agency's payment-result file as the import reads it: the strict CP932 line reader, the
// format and agency detection, the first pass's sums and the second pass's items, under the demo's layouts and under
// a layout read from the input itself (the start.length cut of any value).
#include "conveni/layouts.h"
#include "conveni/mtfile.h"
#include "conveni/mtrecord.h"
#include "tests/fuzz/input.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

// A layout from ';'-separated values: the items' places (start.length), then the field numbers. From the input's first
// line: every item cut anywhere, field numbers anywhere.
pel::CvsLayout layoutFrom(const QString& line)
{
    const QStringList v = line.split(u';');
    const auto at = [&](int i) { return v.value(i % (v.size() + 1)); };
    pel::CvsLayout l;
    pel::LayoutPos* const places[] = {&l.sokuk, &l.sokum, &l.kakuk, &l.kakum, &l.torik, &l.torim, &l.fcd,    &l.scd,
                                      &l.dno1,  &l.dno2,  &l.money, &l.nen,   &l.tuki,  &l.hi,    &l.cvscode};
    int i = 0;
    for (pel::LayoutPos* p : places)
        if (!pel::fnSplitPos(pel::fnLayoutValue(at(i++)), p))
            *p = {};
    qint16* const fields[] = {&l.cfcd,   &l.cscd, &l.cdno1, &l.cdno2, &l.cbun,    &l.cidno,
                              &l.cmoney, &l.cnen, &l.ctuki, &l.chi,   &l.ccvscode};
    for (qint16* n : fields)
        if (!pel::fnFieldNo(pel::fnLayoutValue(at(i++)), n))
            *n = 0;
    return l;
}

void check(const pel::LayoutPos& p, const QString& line)
{
    const QString item = pel::fnItem(line, p);
    if (item.size() > p.length || (p.start > 0 && item.size() > qMax<qsizetype>(0, line.size() - p.start + 1)))
        std::abort(); // an item is never longer than its place nor reaches beyond its line
}

void import(const QString& path, const pel::CvsLayout& l, int dateKind)
{
    pel::MtFile file;
    if (!file.open(path))
        return;
    const pel::MtDetection d = pel::detectMt(file, QStringLiteral("908997"));
    if (d.kind != pel::MtDetection::Found)
        return;
    if (d.comma != 0 && d.comma != 1)
        std::abort();
    file.close();
    if (!file.open(path))
        std::abort();
    bool postal = false;
    QString line;
    while (file.next(&line) == pel::MtFile::Status::Line) {
        if (d.comma == 0) {
            const pel::MtSumLine s = pel::readSumLine(line, l, &postal);
            if (s.sokuk < 0 || s.torik < 0 || s.sokum < 0 || s.torim < 0 || s.amount < 0)
                std::abort(); // no sign is ever read
        }
        check(l.money, line);
        check(l.dno1, line);
        const pel::MtRecord r = pel::readRecord(line, d.comma, l, d.agency, dateKind, 20240620);
        if (r.kind == pel::MtRecord::Data && (r.amount < 0 || r.denno < 0))
            std::abort();
        // a comma-separated code is always two characters; a short fixed-width line may give fewer
        if (r.kind != pel::MtRecord::Skip && (d.comma != 0 ? r.code.size() != 2 : r.code.size() > 2))
            std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), static_cast<qsizetype>(size - 1));
    const QString& path = writtenInput("MT.txt", bytes);
    const int dateKind = data[0] & 1;
    if (data[0] & 2) {
        // the layout from the first line, the records from the rest
        const qsizetype eol = bytes.indexOf('\n');
        const pel::CvsLayout l = layoutFrom(QString::fromLatin1(bytes.left(eol < 0 ? 64 : eol)));
        import(path, l, dateKind);
    } else {
        // the demo's two agencies (cvsini)
        static const pel::CvsLayout fixed =
            layoutFrom(QStringLiteral("2.06;8.1;18.06;24.1;34.06;40.1;18.05;23.04;4.14;0;39.1;27.04;31.02;33.02;49.04;"
                                      "0;0;0;0;0;0;0;0;0;0;0"));
        static const pel::CvsLayout comma =
            layoutFrom(QStringLiteral("0;0;0;0;0;0;1.06;1.05;1.17;0;1.1;1.04;5.02;7.02;1.04;2;3;4;0;0;0;5;6;6;6;8"));
        import(path, (data[0] & 4) ? comma : fixed, dateKind);
    }
    return 0;
}
