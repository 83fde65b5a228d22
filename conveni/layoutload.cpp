// The loader of the record layouts: the row of cvsini read through the loader's own global connection.
#include "app/db/dbglobals.h"
#include "app/interaction.h"
#include "conveni/layouts.h"

namespace pel {

bool fnLoadCvsIni(const QString& code, qint16 kubun, QString* error)
{
    // a layout that cannot be read is not a missing one
    const auto fail = [&](const QString& text) {
        if (error)
            *error = text;
        return false;
    };
    if (error)
        error->clear();
    gclsDb = std::make_unique<clsDbClass>();
    Recordset rs;
    if (!gclsDb->OpenDb() ||
        !gclsDb->DbSql(Sql("select * from cvsini where code=") + Sql::q(code) + " and kubun=" + Sql::n(kubun), rs))
        return fail(Interaction::readErrorText(gclsDb->ErrMsg()));
    if (rs.eof())
        return false;

    CvsLayout l;
    QString bad; // the first value that does not fit its place
    const auto check = [&](bool fits, const char* column, const QString& value) {
        if (!fits && bad.isEmpty())
            bad = QStringLiteral("基本情報 (cvsini) の %1 の値「%2」は使えません").arg(QLatin1String(column), value);
    };
    const auto pos = [&](const char* column, LayoutPos& into) {
        const QString v = fnGetFields(rs, QString::fromLatin1(column));
        check(fnSplitPos(fnLayoutValue(v), &into), column, v);
    };
    const auto num = [&](const char* column, qint16& into) {
        const QString v = fnGetFields(rs, QString::fromLatin1(column));
        check(fnFieldNo(fnLayoutValue(v), &into), column, v);
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
    if (rs.isOpen())
        rs.close();
    // a value that does not fit its place is a layout that cannot be used: the last good one stays
    if (!bad.isEmpty())
        return fail(bad);
    gCvsLayout = l;
    return true;
}

} // namespace pel
