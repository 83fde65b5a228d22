#include "conveni/mtrecord.h"

#include "app/startup.h"
#include "ui/textrules.h"

#include <QStringList>
#include <cmath>
#include <limits>

namespace pel {
namespace {

struct BadItem {};

double num(const QString& text)
{
    return fnToNum(text, true, false);
}

// Rounded half to even into 32 bits; a value beyond is an item that cannot be read.
qint32 toLong(double value)
{
    const double r = std::nearbyint(value);
    if (!(r >= std::numeric_limits<qint32>::min() && r <= std::numeric_limits<qint32>::max()))
        throw BadItem{};
    return static_cast<qint32>(r);
}

const QString& field(const QStringList& fields, qint16 number)
{
    if (number < 0 || number >= fields.size())
        throw BadItem{};
    return fields.at(number);
}

} // namespace

bool isPaidCode(const QString& code)
{
    return code == QLatin1String("01") || code == QLatin1String("12") || code == QLatin1String("22");
}

MtDetection detectMt(MtFile& file, const QString& previousAgency)
{
    MtDetection d;
    d.agency = previousAgency;
    QString first;
    switch (file.next(&first)) {
    case MtFile::Status::Error:
        d.kind = MtDetection::Error;
        return d;
    case MtFile::Status::End:
        d.kind = MtDetection::Empty;
        return d;
    case MtFile::Status::Line:
        break;
    }
    if (first.contains(u',')) {
        d.comma = 1;
        d.agency = QStringLiteral("929023");
        return d;
    }
    if (file.atEnd() && first.startsWith(QLatin1String("HEAD"))) {
        d.kind = MtDetection::Head;
        return d;
    }
    QString line;
    MtFile::Status st;
    while ((st = file.next(&line)) == MtFile::Status::Line) {
        if (!line.startsWith(u'2'))
            continue;
        // the first data record names the agency; a file that names none keeps the last run's
        const QString at18 = line.mid(17, 5);
        if (at18 == QLatin1String("08997"))
            d.agency = QStringLiteral("908997");
        else if (at18 == QLatin1String("59951"))
            d.agency = QStringLiteral("959951");
        else if (at18 == QLatin1String("08082"))
            d.agency = QStringLiteral("908082");
        else if (line.mid(20, 6) == QLatin1String("929023"))
            d.agency = QStringLiteral("929023");
        break;
    }
    if (st == MtFile::Status::Error)
        d.kind = MtDetection::Error;
    return d;
}

MtSumLine readSumLine(const QString& line, const CvsLayout& l, bool* postal)
{
    MtSumLine s;
    const QString code = line.mid(1, 2);
    if (code == QLatin1String("12") || code == QLatin1String("22"))
        *postal = true;
    if (line.startsWith(u'2')) {
        if (isPaidCode(code))
            s.kind = MtSumLine::Paid;
        else if (code == QLatin1String("03"))
            s.kind = MtSumLine::Cancel;
        s.amount = num(fnItem(line, l.money));
    } else if (line.startsWith(u'8')) {
        s.kind = MtSumLine::Trailer;
        s.sokuk = std::round(num(fnItem(line, l.sokuk)));
        s.sokum = num(fnItem(line, l.sokum));
        if (*postal) { // postal transfers are counted apart at columns 50 and 56
            s.sokuk += std::round(num(line.mid(49, 6)));
            s.sokum += num(line.mid(55, 10));
        }
        s.torik = std::round(num(fnItem(line, l.torik)));
        s.torim = num(fnItem(line, l.torim));
    }
    return s;
}

MtRecord readRecord(const QString& line, qint16 comma, const CvsLayout& l, const QString& agency, int dateKind,
                    qint32 screenDate)
{
    MtRecord r;
    QStringList f;
    if (comma == 0) {
        if (!line.startsWith(u'2'))
            return r;
        r.code = line.mid(1, 2);
        if (r.code == QLatin1String("02"))
            return r;
    } else {
        if (fnSplitQuoted(line, f, QStringLiteral(",")) == -1)
            return r;
        const QString c = f.value(1);
        r.code = c.isEmpty() ? QStringLiteral("0 ") : c.size() == 1 ? QLatin1Char('0') + c : c.right(2);
        if (!isPaidCode(r.code) && r.code != QLatin1String("03"))
            return r;
        if (f.size() > 4 && f[4].startsWith(QLatin1String("EAN")))
            f[4].remove(0, 3);
    }
    const auto item = [&](LayoutPos pos, qint16 fieldNo) {
        return comma == 0 ? fnItem(line, pos) : fnItem(field(f, fieldNo), pos);
    };
    try {
        if (l.fcd.has()) {
            QString named = item(l.fcd, l.cfcd);
            if (named.size() == 5)
                named.prepend(u'9');
            if (l.scd.has())
                (void)item(l.scd, l.cscd);
            if (named != agency) {
                r.kind = MtRecord::AgencyError;
                r.agencyErrorAmount = num(fnItem(line, l.money)); // from the whole line, in both formats
                return r;
            }
        } else if (l.scd.has()) {
            (void)item(l.scd, l.cscd);
        }
        if (l.cvscode.has())
            (void)item(l.cvscode, l.ccvscode);

        if (dateKind == 0) {
            if (comma == 0) {
                r.nday = toLong(num(fnItem(line, l.nen) + fnItem(line, l.tuki) + fnItem(line, l.hi)));
            } else {
                r.nday = toLong(num(item(l.nen, l.cnen)) * 10000);
                r.nday = toLong(r.nday + num(item(l.tuki, l.ctuki)) * 100);
                r.nday = toLong(r.nday + num(item(l.hi, l.chi)));
            }
        } else if (comma == 0) {
            r.nday = screenDate;
        } // the comma-separated format takes no date from the screen: it stays 0

        r.amount = toLong(num(item(l.money, l.cmoney)));
        if (l.dno2.has()) {
            if (comma == 0)
                r.denno = toLong(num(fnItem(line, l.dno1) + fnItem(line, l.dno2)));
            else
                r.denno = toLong(num(fnTrim(item(l.dno1, l.cdno1)) + item(l.dno2, l.cdno2)));
        } else {
            r.denno = toLong(num(item(l.dno1, l.cdno1)));
        }
        if (comma != 0) {
            (void)field(f, l.cidno);
            (void)field(f, l.cbun);
        }
    } catch (const BadItem&) {
        r.kind = MtRecord::Bad;
        return r;
    }
    r.kind = MtRecord::Data;
    return r;
}

} // namespace pel
