#include "conveni/layouts.h"

#include "app/db/dbglobals.h"

#include <cmath>
#include <limits>

namespace pel
{

CvsLayout gCvsLayout;

namespace
{

bool toShort(double value, qint16* out)
{
    // the current rounding mode is to nearest, halves to even
    const double r = std::nearbyint(value);
    if (!(r >= std::numeric_limits<qint16>::min() && r <= std::numeric_limits<qint16>::max())) return false;
    *out = static_cast<qint16>(r);
    return true;
}

} // namespace

double fnLayoutValue(const QString& text)
{
    QString r;
    bool dot = false;
    for (const QChar c : text) {
        if (c >= u'0' && c <= u'9') {
            r += c;
        } else if (c == u'.' && !dot) {
            dot = true;
            if (r.isEmpty()) r += u'0';
            r += c;
        }
    }
    return r.isEmpty() ? 0.0 : r.toDouble();
}

bool fnSplitPos(double value, LayoutPos* pos)
{
    const double n = std::nearbyint(value * 100);
    if (!(n >= 0 && n <= std::numeric_limits<qint16>::max() * 100.0 + 99)) return false;
    const auto whole = static_cast<qint64>(n);
    pos->start = static_cast<qint16>(whole / 100);
    pos->length = static_cast<qint16>(whole % 100);
    return true;
}

bool fnFieldNo(double value, qint16* number)
{
    return toShort(value, number);
}

QString fnItem(const QString& text, LayoutPos pos)
{
    if (pos.start <= 0 || pos.length <= 0) return QString();
    return text.mid(pos.start - 1, pos.length);
}

bool fnLoadCvsIni(const QString& code, qint16 kubun)
{
    gclsDb = std::make_unique<clsDbClass>();
    (void)gclsDb->OpenDb(); // a failure shows as the statement's
    Recordset rs;
    if (!gclsDb->DbSql(Sql("select * from cvsini where code=") + Sql::q(code) + " and kubun=" + Sql::n(kubun), rs))
        return false;
    if (rs.eof()) return false;

    CvsLayout l;
    bool ok = true;
    const auto pos = [&](const char* column, LayoutPos& into) {
        ok = fnSplitPos(fnLayoutValue(fnGetFields(rs, QString::fromLatin1(column))), &into) && ok;
    };
    const auto num = [&](const char* column, qint16& into) {
        ok = fnFieldNo(fnLayoutValue(fnGetFields(rs, QString::fromLatin1(column))), &into) && ok;
    };
    pos("sokuk", l.sokuk), pos("sokum", l.sokum), pos("kakuk", l.kakuk), pos("kakum", l.kakum);
    pos("torik", l.torik), pos("torim", l.torim), pos("fcd", l.fcd), pos("scd", l.scd), pos("dno1", l.dno1);
    pos("dno2", l.dno2), pos("bun", l.bun), pos("idno", l.idno), pos("money", l.money), pos("nen", l.nen);
    pos("tuki", l.tuki), pos("hi", l.hi), pos("syschk", l.syschk), pos("cvscode", l.cvscode);
    pos("cvstenpo", l.cvstenpo), pos("ji", l.ji), pos("hun", l.hun), num("sikbn", l.sikbn), pos("sinen", l.sinen);
    pos("situki", l.situki), pos("sihi", l.sihi), num("cfcd", l.cfcd), num("cscd", l.cscd), num("cdno1", l.cdno1);
    num("cdno2", l.cdno2), num("cbun", l.cbun), num("cidno", l.cidno), num("cmoney", l.cmoney), num("cnen", l.cnen);
    num("ctuki", l.ctuki), num("chi", l.chi), num("csyschk", l.csyschk), num("ccvscode", l.ccvscode);
    num("ccvstenpo", l.ccvstenpo), num("cji", l.cji), num("chun", l.chun), num("csinen", l.csinen);
    num("csituki", l.csituki), num("csihi", l.csihi), pos("eanflag", l.eanflag), num("eancsv", l.eancsv);
    if (rs.isOpen()) rs.close();
    // a value that does not fit its place is a layout that cannot be used: the last good one stays
    if (!ok) return false;
    gCvsLayout = l;
    return true;
}

} // namespace pel
