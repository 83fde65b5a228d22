#include "conveni/billingjob.h"

#include "app/cp932.h"
#include "app/db/dbglobals.h"
#include "app/db/retry.h"
#include "app/home.h"
#include "app/oplog.h"
#include "app/outputfile.h"
#include "ui/textrules.h"

#include <QDate>
#include <QHash>
#include <QSet>

#include <algorithm>
#include <cmath>
#include <memory>

namespace pel
{
namespace
{

const QString kAborted = QStringLiteral("中止しました。");

// One output file: every field between double quotes (quotes inside are not escaped), separated by commas, CR LF,
// Shift-JIS as the system writes it. Characters Shift-JIS cannot hold are collected for the report.
class BillingFile
{
public:
    struct Field {
        QString value;
        const char* source = nullptr; // the columns it comes from, for the report; nullptr: never outside Shift-JIS
    };

    explicit BillingFile(const QString& path) : file_(path) {}
    OutputFile& file() { return file_; }

    void write(const QString& denno, const QList<Field>& fields, bool trailingComma, QList<Unencodable>& unencodable,
               QSet<QString>& reported)
    {
        // one buffer for every line of the file, filled in place
        qsizetype size = (fields.isEmpty() ? 0 : 3 * fields.size() - 1) + (trailingComma ? 1 : 0) + 2;
        for (const Field& f : fields)
            size += f.value.size();
        line_.resize(size);
        QChar* out = line_.data();
        for (qsizetype i = 0; i < fields.size(); ++i) {
            if (i > 0) *out++ = QLatin1Char(',');
            *out++ = QLatin1Char('"');
            const QString& v = fields.at(i).value;
            std::copy(v.cbegin(), v.cend(), out);
            out += v.size();
            *out++ = QLatin1Char('"');
        }
        if (trailingComma) *out++ = QLatin1Char(',');
        *out++ = QLatin1Char('\r');
        *out++ = QLatin1Char('\n');
        const QString& line = line_;
        if (std::optional<QByteArray> bytes = Cp932::encode(line)) {
            (void)file_.write(*bytes); // a failure is kept by the file and seen after the order
            return;
        }
        for (const Field& f : fields)
            report(denno, f, unencodable, reported);
        (void)file_.write(Cp932::encodeLossy(line));
    }

private:
    static void report(const QString& denno, const Field& f, QList<Unencodable>& unencodable, QSet<QString>& reported)
    {
        const QList<uint> codes = f.value.toUcs4();
        for (uint code : codes) {
            const QString ch = QString::fromUcs4(reinterpret_cast<const char32_t*>(&code), 1);
            if (Cp932::encode(ch)) continue;
            const QString source = f.source ? QString::fromLatin1(f.source) : QString();
            const QString key = denno + QLatin1Char('\t') + source + QLatin1Char('\t') + ch;
            if (reported.contains(key)) continue;
            reported.insert(key);
            unencodable.append({denno, source, ch});
        }
    }

    OutputFile file_;
    QString line_;
};

// Fields of a result by name, their positions looked up once: every result of one statement text has the same
// fields in the same places.
class Fields
{
public:
    explicit Fields(std::initializer_list<const char*> names)
    {
        for (const char* n : names)
            names_ << QString::fromLatin1(n);
    }
    QString operator()(Recordset& rs, int k)
    {
        if (index_.isEmpty())
            for (const QString& n : std::as_const(names_))
                index_ << rs.fieldIndex(n);
        if (index_.at(k) < 0) {
            QString f = names_.at(k);
            return fnGetFields(rs, f, 1); // shows the missing field as the getter does
        }
        return rs.text(index_.at(k));
    }

private:
    QStringList names_;
    QList<int> index_;
};

// The order query's fields, in the order of the names below.
enum OrderField {
    Denno, OAdr1, OAdr2, OAdr3, OAdr4, OTel, OName, OZip, OKeitai, Total, MName, MSname, OSname, MAdr2, MAdr3, MAdr4,
    MTel, MKana, MZip, MAdr1, MKeitai, MCode, OCode, Utax, Sday, Stax
};
Fields orderFields()
{
    return Fields{"denno",  "o.adr1", "o.adr2",  "o.adr3", "o.adr4", "o.tel",  "o.name", "o.zip",  "o.keitai",
                  "total",  "m.name", "m.sname", "o.sname", "m.adr2", "m.adr3", "m.adr4", "m.tel",  "m.kana",
                  "m.zip",  "m.adr1", "m.keitai", "m.code", "o.code", "utax",   "sday",   "stax"};
}
enum LineField { Line, Gcode, Zgname, Suu, Tanka, LineTotal };

// fnToNum of a field's text. A number field's text is already plain ("-12", "1234.5"), and then the digits
// read the same without the filtering; a whole number of up to 15 digits is exact as it is added up.
double toNumber(const QString& text)
{
    const bool minus = text.startsWith(QLatin1Char('-'));
    const qsizetype first = minus ? 1 : 0;
    const bool shortWhole = text.size() - first <= 15;
    qsizetype point = -1;
    qint64 whole = 0;
    for (qsizetype i = first; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c == u'.' && point < 0 && i > first && i + 1 < text.size())
            point = i;
        else if (c < u'0' || c > u'9')
            return fnToNum(text);
        else if (point < 0 && shortWhole)
            whole = whole * 10 + (c - u'0');
    }
    if (text.size() == first)
        return fnToNum(text);
    if (point >= 0 || text.size() - first > 15)
        return text.toDouble();
    return minus ? -static_cast<double>(whole) : static_cast<double>(whole);
}

QString unencodableMessage(const QList<Unencodable>& list)
{
    QString text = QStringLiteral("Shift-JIS で書けない文字があります。ファイルでは「?」になっています。");
    for (const Unencodable& u : list)
        text += QStringLiteral("\r\n受注番号 %1　%2　「%3」 %4").arg(u.denno, u.field, u.character, u.codePoint());
    return text;
}

} // namespace

QString Unencodable::codePoint() const
{
    const QList<uint> codes = character.toUcs4();
    return QStringLiteral("U+%1").arg(codes.isEmpty() ? 0u : codes.first(), 4, 16, QLatin1Char('0')).toUpper();
}

BillingJob::Opening BillingJob::opening()
{
    Opening o;
    Recordset sys;
    if (!db_.DbSql(Sql("select conveni from sysfile where id = 1"), sys)) {
        o.readError = db_.ErrMsg();
        return o;
    }
    if (!sys.eof() && fnToNum(fnGetFields(sys, QStringLiteral("conveni"))) == 2)
        o.agency = 1;
    Recordset set;
    if (!db_.DbSql(Sql("select ckcode1 from cvsset where code=1"), set)) {
        o.readError = db_.ErrMsg();
        return o;
    }
    if (!set.eof())
        o.companyCode = fnGetFields(set, QStringLiteral("ckcode1"));
    return o;
}

QString BillingJob::noCompanyCodeMessage()
{
    return QStringLiteral(
        "企業コードが設定されていません。\r\n\r\n「コンビニ収納代行設定」で、企業コードを登録してください。");
}

QStringList BillingJob::fileNames(int agency)
{
    if (agency == 1) return {QStringLiteral("コンビニ.csv")};
    return {QStringLiteral("顧客一括登録.txt"), QStringLiteral("請求一括登録.txt")};
}

QString BillingJob::padNumber(const QString& value, int width, QChar pad)
{
    QString v = fnTrim(value);
    if (v.isEmpty()) v = QStringLiteral(" ");
    return (QString(width, pad) + v).right(width);
}

QPair<QString, QString> BillingJob::splitName(const QString& name, const QString& sname)
{
    if (name == sname) return {name, QString()};
    qsizetype p = name.indexOf(QLatin1Char(' '));
    if (p < 0) p = name.indexOf(QChar(0x3000));
    if (p < 0) return {name, QString()};
    return {name.left(p), name.mid(p + 1)};
}

QStringList BillingJob::pieces(const QString& text, int bytes, int count)
{
    // a text that fits the first piece whole (the usual case) is measured once instead of character by character
    if (count > 0 && Cp932::byteLength(text) <= bytes) {
        QStringList out(count);
        out[0] = text;
        return out;
    }
    QString rest = text;
    QStringList out;
    for (int i = 0; i < count; ++i)
        out << fnCutByte(rest, bytes);
    return out;
}

QString BillingJob::clampAmount(double value)
{
    const double whole = std::nearbyint(value); // halves to even
    const QString text = QString::number(static_cast<qint64>(whole));
    if (text.size() > 6) return whole < 0 ? QStringLiteral("-999999") : QStringLiteral("999999");
    return text;
}

QString BillingJob::shipDate(const QString& sday)
{
    // "@@@@/@@/@@": the text fills the placeholders from the right, blanks on the left
    const QString s = fnPadLeft(sday, 8);
    const qsizetype extra = s.size() - 8;
    const QString formatted =
        s.left(extra + 4) + QLatin1Char('/') + s.mid(extra + 4, 2) + QLatin1Char('/') + s.mid(extra + 6, 2);
    return QDate::fromString(formatted, QStringLiteral("yyyy/MM/dd")).isValid() ? formatted : QString();
}

BillingResult BillingJob::run(const BillingRequest& request, Interaction& ui)
{
    BillingResult result;
    ui.lock(true);
    ui.status(QStringLiteral("処理中・・・"));
    const auto finish = [&](BillingResult::Outcome outcome) {
        result.outcome = outcome;
        ui.status(QString());
        ui.lock(false);
        return result;
    };

    const bool csv = request.agency == 1;
    const int nowidth = csv ? 17 : 14;
    const Sql select = Sql("select *") + "  from jyuden d,member m,member o" + " where d.mcode=m.code" +
                       "   and d.omcode=o.code" + "   and d.denno between " + Sql::n(request.fromNo) + " and " +
                       Sql::n(request.toNo) + "   and d.denku = 0" +
                       "   and d.cflag = " + Sql::n(request.reoutput ? QStringLiteral("1") : QStringLiteral("0")) +
                       "   and d.sday between " + Sql::n(request.fromDate) + " and " + Sql::n(request.toDate) +
                       "   and d.pcode=6" + " order by sday,denno";
    Recordset rs;
    const bool selected = db_.DbSql(select, rs);
    ui.yieldOnce();
    if (!selected) {
        ui.readError(db_.ErrMsg());
        return finish(BillingResult::Outcome::ReadFailed);
    }
    result.count = static_cast<int>(rs.recordCount());
    if (result.count == 0) {
        // the answer of this button set means nothing
        ui.messageBox(QStringLiteral("該当件数は０件です"), mb::CancelTryContinue | mb::Information,
                      QStringLiteral("確認"));
        return finish(BillingResult::Outcome::NoOrders);
    }
    if (ui.messageBox(QStringLiteral("該当件数は、") + QString::number(result.count) +
                          QStringLiteral("件です。作成しますか？"),
                      mb::YesNo | mb::Information, QStringLiteral("確認")) != answer::Yes)
        return finish(BillingResult::Outcome::Declined);

    const std::optional<QString> folder =
        ui.chooseFolder(QStringLiteral("コンビニＣＳＶを出力するフォルダを選択してください"), request.folder);
    if (!folder || folder->isEmpty()) return finish(BillingResult::Outcome::NoFolder);
    result.folder = *folder;

    std::vector<std::unique_ptr<BillingFile>> files;
    for (const QString& name : fileNames(request.agency)) {
        result.files << joinPath(*folder, name);
        files.push_back(std::make_unique<BillingFile>(result.files.last()));
        if (!files.back()->file().open()) {
            ui.msg(QStringLiteral("ファイルエラー"));
            return finish(BillingResult::Outcome::OpenFailed);
        }
    }
    // Every file flushed before any is put in place: a failure leaves all the existing files as they were.
    const auto closeAll = [&] {
        for (auto& f : files)
            if (!f->file().flush()) {
                ui.messageBox(f->file().failureText(), mb::OkOnly | mb::Exclamation);
                return false;
            }
        for (auto& f : files)
            if (!f->file().commit()) {
                ui.messageBox(f->file().failureText(), mb::OkOnly | mb::Exclamation);
                return false;
            }
        return true;
    };
    // A write that failed ends the run before the next order; nothing is put in place.
    const auto writeFailed = [&] {
        for (auto& f : files)
            if (!f->file().error().isEmpty()) {
                ui.messageBox(f->file().failureText(), mb::OkOnly | mb::Exclamation);
                return true;
            }
        return false;
    };
    // an order without its lines or goods names must not pass for a written one
    const auto readFailed = [&] {
        closeAll();
        ui.readError(db_.ErrMsg());
        return finish(BillingResult::Outcome::ReadFailed);
    };

    QStringList written;
    written.reserve(result.count);
    QSet<QString> reported;
    QHash<QString, QString> goodsNames;
    int lastLine = 0; // carries across orders: a tax record of an order without lines follows the previous order's
    Fields orderColumns = orderFields();
    Fields lineColumns{"line", "gcode", "zgname", "suu", "tanka", "total"};
    const auto d = [&](OrderField k) { return orderColumns(rs, k); };
    QHash<QString, QString> shipDates; // a few hundred days among all the orders
    const Sql linesHead = Sql("select * from jyumei where denno="), linesTail = Sql(" order by denno,line");
    using F = BillingFile::Field;
    for (rs.moveFirst(); !rs.eof(); rs.moveNext()) {
        ui.yieldOnce();
        if (ui.cancelRequested()) {
            // the files so far stay, as the run always left them
            if (!closeAll()) return finish(BillingResult::Outcome::FileError);
            ui.messageBox(kAborted, mb::Information);
            if (!result.unencodable.isEmpty()) ui.messageBox(unencodableMessage(result.unencodable), mb::Exclamation);
            return finish(BillingResult::Outcome::Aborted);
        }
        const QString denno = d(Denno);
        written << denno;
        const QString padded = padNumber(denno, nowidth);
        if (csv) {
            if (written.size() == 1)
                files[0]->write(QString(),
                                {{QStringLiteral("コード")},
                                 {QStringLiteral("名前")},
                                 {QStringLiteral("郵便番号")},
                                 {QStringLiteral("住所１")},
                                 {QStringLiteral("住所２")},
                                 {QStringLiteral("連絡先")},
                                 {QStringLiteral("金額")}},
                                false, result.unencodable, reported);
            const QStringList adr = pieces(joinedTexts({d(OAdr1), d(OAdr2), d(OAdr3), d(OAdr4)}), 60, 2);
            const QString tel = d(OTel);
            files[0]->write(denno,
                            {{padded},
                             {d(OName), "o.name"},
                             {d(OZip), "o.zip"},
                             {adr.at(0), "o.adr1+o.adr2+o.adr3+o.adr4"},
                             {adr.at(1), "o.adr1+o.adr2+o.adr3+o.adr4"},
                             fnTrim(tel).isEmpty() ? F{d(OKeitai), "o.keitai"} : F{tel, "o.tel"},
                             {d(Total)}},
                            false, result.unencodable, reported);
        } else {
            const auto [mFamily, mGiven] = splitName(d(MName), d(MSname));
            const auto [oFamily, oGiven] = splitName(d(OName), d(OSname));
            const QStringList madr = pieces(joinedTexts({d(MAdr2), d(MAdr3), d(MAdr4)}), 40, 2);
            const QStringList oadr = pieces(joinedTexts({d(OAdr2), d(OAdr3), d(OAdr4)}), 40, 2);
            const QString tel = d(MTel);
            files[0]->write(denno,
                            {{padded},
                             {mFamily, "m.name"},
                             {mGiven, "m.name"},
                             {d(MKana), "m.kana"},
                             {QStringLiteral("0")},
                             {fnDelStr(d(MZip), QStringLiteral("-")), "m.zip"},
                             {d(MAdr1), "m.adr1"},
                             {madr.at(0), "m.adr2+m.adr3+m.adr4"},
                             {madr.at(1), "m.adr2+m.adr3+m.adr4"},
                             tel.isEmpty() ? F{d(MKeitai), "m.keitai"} : F{tel, "m.tel"},
                             {d(MCode) == d(OCode) ? QStringLiteral("0")
                                                                                         : QStringLiteral("1")},
                             {oFamily, "o.name"},
                             {oGiven, "o.name"},
                             {QStringLiteral("0")},
                             {fnDelStr(d(OZip), QStringLiteral("-")), "o.zip"},
                             {d(OAdr1), "o.adr1"},
                             {oadr.at(0), "o.adr2+o.adr3+o.adr4"},
                             {oadr.at(1), "o.adr2+o.adr3+o.adr4"}},
                            false, result.unencodable, reported);

            const QString total = d(Total);
            const QString sday = d(Sday);
            auto dayIt = shipDates.constFind(sday);
            if (dayIt == shipDates.constEnd()) dayIt = shipDates.insert(sday, shipDate(sday));
            const QString day = *dayIt;
            Recordset lines;
            if (!db_.DbSql(linesHead + Sql::n(denno) + linesTail, lines)) return readFailed();
            const auto l = [&](LineField k) { return lineColumns(lines, k); };
            for (lines.moveFirst(); !lines.eof(); lines.moveNext()) {
                lastLine = static_cast<int>(toNumber(l(Line)));
                const QString gcode = l(Gcode);
                F goodsName;
                if (gcode == kFreeItem) {
                    goodsName = {pieces(l(Zgname), 200, 1).at(0), "jyumei.zgname"};
                } else {
                    auto it = goodsNames.constFind(gcode);
                    if (it == goodsNames.constEnd()) {
                        Recordset g;
                        QString name;
                        if (!db_.DbSql(Sql("select name from goods where code=") + Sql::q(gcode), g))
                            return readFailed();
                        if (!g.eof()) name = fnGetFields(g, QStringLiteral("name"));
                        it = goodsNames.insert(gcode, name);
                    }
                    goodsName = {*it, "goods.name"};
                }
                const QString suu = l(Suu);
                files[1]->write(denno,
                                {{padded},
                                 {request.companyCode, "cvsset.ckcode1"},
                                 {padNumber(QString::number(lastLine), 2)},
                                 {total},
                                 {d(Utax)},
                                 {day},
                                 {gcode == kFreeItem ? QString() : gcode, "jyumei.gcode"},
                                 goodsName,
                                 {suu},
                                 {clampAmount(toNumber(suu) * toNumber(l(Tanka)))},
                                 {clampAmount(toNumber(l(LineTotal)))}},
                                true, result.unencodable, reported);
            }
            const QString stax = d(Stax);
            if (toNumber(stax) != 0)
                files[1]->write(denno,
                                {{padded},
                                 {request.companyCode, "cvsset.ckcode1"},
                                 {padNumber(QString::number(lastLine + 1), 2)},
                                 {total},
                                 {QStringLiteral("0")},
                                 {day},
                                 {QString()},
                                 {QStringLiteral("消費税")},
                                 {QStringLiteral("1")},
                                 {stax},
                                 {stax}},
                                true, result.unencodable, reported);
        }
        if (writeFailed()) return finish(BillingResult::Outcome::FileError);
        result.written = static_cast<int>(written.size());
    }
    if (!closeAll()) return finish(BillingResult::Outcome::FileError);
    opeLog(kCaption, 5);
    ui.msg(QStringLiteral("ＣＳＶ出力"));
    if (!result.unencodable.isEmpty()) ui.messageBox(unencodableMessage(result.unencodable), mb::Exclamation);

    if (!request.reoutput && ui.messageBox(QStringLiteral("作成した、コンビニデータを出力済みに更新しますか？"),
                                           mb::YesNo | mb::Question) == answer::Yes) {
        bool ok = db_.BeginTns();
        for (qsizetype i = 0; ok && i < written.size(); ++i) {
            const Sql order = Sql("select * from jyuden where denno=") + Sql::n(written.at(i));
            const RetryResult r = retrySilently(kAttempts, [&](QString* error) {
                return editRecord(
                    db_, order,
                    [](Recordset& rec) { return fnSetFields(rec, QStringLiteral("cflag"), QStringLiteral("1")); },
                    error);
            });
            result.markAttempts = r.attempts;
            ok = r.ok;
        }
        if (ok) ok = db_.CommitTns();
        if (!ok) {
            (void)db_.RollbackTns();
            result.markFailed = true;
            ui.msg(QStringLiteral("記録エラー"));
        } else {
            result.marked = static_cast<int>(written.size());
            opeLog(kCaption, 2, QString::number(written.size()) + QStringLiteral("件、印刷済みに更新"));
        }
    }
    return finish(BillingResult::Outcome::Written);
}

} // namespace pel
