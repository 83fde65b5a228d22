#include "shipping/icatexportjob.h"

#include "app/cp932.h"
#include "app/oplog.h"
#include "app/outputfile.h"
#include "ui/textrules.h"

#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace pel {
namespace {

const QString kComma = QStringLiteral(",");
const QString kIdeographicSpace = QStringLiteral("　");

// The order-number boxes as 32-bit integers: rounded half to even, kept within the type.
qint32 toLong(const QString& text)
{
    const double v = std::nearbyint(fnToNum(text));
    if (v > std::numeric_limits<qint32>::max()) return std::numeric_limits<qint32>::max();
    if (v < std::numeric_limits<qint32>::min()) return std::numeric_limits<qint32>::min();
    return static_cast<qint32>(v);
}

// A number as the engine converts it strictly: an empty text or a stray letter is not one.
bool strictNumber(const QString& text, double* value)
{
    // plain digits, what a date field holds, need no pattern
    const bool digits =
        !text.isEmpty() && std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c >= u'0' && c <= u'9'; });
    static const QRegularExpression number(QStringLiteral(R"(^\s*[+-]?(\d+\.?\d*|\.\d+)\s*$)"));
    if (!digits && !number.match(text).hasMatch())
        return false;
    *value = text.trimmed().toDouble();
    return true;
}

QString timeSlot(const QString& htime)
{
    static const QString kSlots[] = {QStringLiteral("0812"), QStringLiteral("1214"), QStringLiteral("1416"),
                                     QStringLiteral("1618"), QStringLiteral("1820"), QStringLiteral("2021")};
    if (htime.size() == 1 && htime[0] >= u'1' && htime[0] <= u'6') return kSlots[htime[0].unicode() - u'1'];
    return QString();
}

// The columns of the export query, looked up once per run rather than once per record.
struct Columns {
    enum : int {
        Sday,
        Denno,
        Hcode,
        Chilled,
        Omcode,
        MTel,
        MKeitai,
        MName,
        MZip,
        MAdr1,
        MAdr2,
        MAdr3,
        MAdr4,
        MSex,
        Gift,
        JmTel,
        JmKeitai,
        JmName,
        JmZip,
        JmAdr1,
        JmAdr2,
        JmAdr3,
        JmAdr4,
        Memo,
        Haiday,
        Htime,
        Total,
        Count
    };
    int index[Count];
    explicit Columns(const Recordset& rs)
    {
        static const char* const names[Count] = {
            "sday",   "denno",   "hcode",   "chilled", "omcode",  "m.tel",  "m.keitai", "m.name",    "m.zip",
            "m.adr1", "m.adr2",  "m.adr3",  "m.adr4",  "m.sex",   "gift",   "jm.tel",   "jm.keitai", "jm.name",
            "jm.zip", "jm.adr1", "jm.adr2", "jm.adr3", "jm.adr4", "d.memo", "haiday",   "htime",     "total"};
        for (int i = 0; i < Count; ++i)
            index[i] = rs.fieldIndex(QString::fromLatin1(names[i]));
    }
    QString text(const Recordset& rs, int column) const
    {
        return index[column] < 0 ? QString() : rs.text(index[column]);
    }
};

struct Sender {
    QString tel, name, zip, adr1, adr2, adr3, adr4;
};

// The 46 fields of one order's line. dates keeps the dates written so far (a run has a few hundred).
QStringList lineFields(const Recordset& rs, const Columns& c, const Sender& shop, QHash<QString, QString>& dates)
{
    const auto t = [&](int column) { return c.text(rs, column); };
    QStringList f(IcatExportJob::kFields);
    const QString sday = t(Columns::Sday);
    auto date = dates.constFind(sday);
    if (date == dates.constEnd())
        date = dates.insert(sday, IcatExportJob::datePattern(sday));
    f[0] = *date;
    f[1] = t(Columns::Denno);
    const double hcode = fnToNum(t(Columns::Hcode));
    f[2] = (hcode == 4 || hcode == 6 || hcode == 8 || hcode == 10) ? QStringLiteral("2") : QStringLiteral("0");
    // the carrier numbers the two cool classes the other way round
    const QString chilled = t(Columns::Chilled);
    f[3] = chilled == QLatin1String("1")   ? QStringLiteral("2")
           : chilled == QLatin1String("2") ? QStringLiteral("1")
                                           : QString();
    f[4] = t(Columns::Omcode);
    const QString tel = t(Columns::MTel);
    f[5] = !tel.isEmpty() ? tel : t(Columns::MKeitai);
    f[7] = t(Columns::MName);
    f[8] = fnDelStr(t(Columns::MZip), QStringLiteral("-"));
    f[9] = joinedTexts({t(Columns::MAdr1), t(Columns::MAdr2), kIdeographicSpace, t(Columns::MAdr3), t(Columns::MAdr4)});
    f[13] = fnToNum(t(Columns::MSex)) == 3 ? QStringLiteral("御中") : QStringLiteral("様");
    Sender s = shop;
    if (fnToNum(t(Columns::Gift)) != 0) {
        s.tel = t(Columns::JmTel);
        if (s.tel.isEmpty()) s.tel = t(Columns::JmKeitai);
        s = {s.tel,
             t(Columns::JmName),
             t(Columns::JmZip),
             t(Columns::JmAdr1),
             t(Columns::JmAdr2),
             t(Columns::JmAdr3),
             t(Columns::JmAdr4)};
    }
    f[15] = s.tel;
    f[17] = s.name;
    f[18] = fnDelStr(s.zip, QStringLiteral("-"));
    f[19] = joinedTexts({s.adr1, s.adr2, kIdeographicSpace, s.adr3, s.adr4});
    f[30] = t(Columns::Memo).left(24);
    const QString haiday = t(Columns::Haiday);
    double day = 0;
    if (strictNumber(haiday, &day) && day != 0) {
        auto delivery = dates.constFind(haiday);
        if (delivery == dates.constEnd())
            delivery = dates.insert(haiday, IcatExportJob::datePattern(haiday));
        f[31] = *delivery;
    }
    f[32] = timeSlot(t(Columns::Htime));
    f[33] = t(Columns::Total);
    return f;
}

// The line in CP932; a character without a CP932 form is written as the system converts it ("?" per UTF-16 unit)
// and listed.
// The fields joined with commas into line, filled in place (one buffer for every line of the run).
void join(const QStringList& fields, QString& line)
{
    qsizetype size = fields.isEmpty() ? 0 : fields.size() - 1;
    for (const QString& f : fields)
        size += f.size();
    line.resize(size);
    QChar* out = line.data();
    for (qsizetype i = 0; i < fields.size(); ++i) {
        if (i > 0)
            *out++ = QLatin1Char(',');
        out = std::copy(fields[i].cbegin(), fields[i].cend(), out);
    }
}

QByteArray encodeLine(QStringList fields, qint64 denno, QList<IcatUnencodable>& unencodable, QString& line)
{
    join(fields, line);
    if (auto bytes = Cp932::encode(line))
        return *bytes;
    for (int i = 0; i < fields.size(); ++i) {
        if (Cp932::encode(fields[i])) continue;
        const QString field = fields[i];
        QString written;
        for (qsizetype k = 0; k < field.size();) {
            const bool pair = field[k].isHighSurrogate() && k + 1 < field.size() && field[k + 1].isLowSurrogate();
            const QString ch = field.mid(k, pair ? 2 : 1);
            if (Cp932::encode(ch)) {
                written += ch;
            } else {
                unencodable.append({denno, i + 1, ch, ch.toUcs4().value(0)});
                written += QString(ch.size(), QLatin1Char('?'));
            }
            k += ch.size();
        }
        fields[i] = written;
    }
    return Cp932::encode(fields.join(kComma)).value_or(QByteArray());
}

} // namespace

void IcatExportJob::loadShop()
{
    shop_.close();
    shopError_ = db_.DbSql(Sql("select * from sysfile where id = 1"), shop_) ? QString() : db_.ErrMsg();
}

QList<QPair<QString, int>> IcatExportJob::labelKinds()
{
    QList<QPair<QString, int>> kinds;
    kindsError_ = shopError_; // which kinds are listed depends on the shop's row
    if (!kindsError_.isEmpty())
        return kinds;
    const auto shop = [&](const char* column) {
        return shop_.isOpen() && !shop_.eof() ? shop_.text(shop_.fieldIndex(QString::fromLatin1(column))) : QString();
    };
    const Sql query = fnToNum(shop("rnou")) == 1
                          ? Sql("select 1 as jj,* from bunrui where kubun=3 and jun>0 ") + " union all" +
                                " select 2 as jj,* from bunrui where kubun=3 and jun=0" + " order by jj,jun,code"
                          : Sql("select 1 as jj,* from bunrui where kubun=3 and code>6 and jun>0") + " union all" +
                                " select 2 as jj,* from bunrui where kubun=3 and code>6 and jun=0" + " union all" +
                                " select 3 as jj,* from bunrui where kubun=3 and code<=6 and jun>0" + " union all" +
                                " select 4 as jj,* from bunrui where kubun=3 and code<=6 and jun=0" +
                                " order by jj,jun,code";
    Recordset rs;
    if (!db_.DbSql(query, rs)) {
        kindsError_ = db_.ErrMsg();
        return kinds;
    }
    const int code = rs.fieldIndex(QStringLiteral("code")), name = rs.fieldIndex(QStringLiteral("name"));
    for (; !rs.eof(); rs.moveNext()) {
        // only these two are kinds that I-CAT prints
        const double c = fnToNum(rs.text(code));
        if (c == 9 || c == 10) kinds.append({rs.text(name), static_cast<int>(c)});
    }
    return kinds;
}

int IcatExportJob::firstEmpty(const Input& in)
{
    const QString* fields[] = {&in.yy[0], &in.mm[0],    &in.dd[0],    &in.yy[1], &in.mm[1],
                               &in.dd[1], &in.denno[0], &in.denno[1], &in.file};
    for (int i = 0; i < 9; ++i)
        if (fnTrim(*fields[i]).isEmpty()) return i;
    return -1;
}

IcatExportJob::Selection IcatExportJob::selection(const Input& in)
{
    Selection s;
    s.dateFrom = trioToYmd(in.yy[0], in.mm[0], in.dd[0]);
    s.dateTo = trioToYmd(in.yy[1], in.mm[1], in.dd[1]);
    if (s.dateFrom > s.dateTo) {
        std::swap(s.dateFrom, s.dateTo);
        s.datesSwapped = true;
    }
    s.dennoFrom = toLong(in.denno[0]);
    s.dennoTo = toLong(in.denno[1]);
    if (s.dennoFrom > s.dennoTo) {
        std::swap(s.dennoFrom, s.dennoTo);
        s.numbersSwapped = true;
    }
    return s;
}

QString IcatExportJob::datePattern(const QString& digits)
{
    // filled from the right; what does not fit stays in front of the first group
    const QString t = fnPadLeft(digits, 8);
    const qsizetype extra = t.size() - 8;
    return t.left(extra + 4) + QLatin1Char('/') + t.mid(extra + 4, 2) + QLatin1Char('/') + t.mid(extra + 6, 2);
}

QString IcatExportJob::unencodableReport(const QList<IcatUnencodable>& list)
{
    constexpr int kShown = 30;
    QString text = QStringLiteral("Shift-JIS にない文字を「?」で書き出しました（%1 文字）").arg(list.size());
    for (qsizetype i = 0; i < list.size() && i < kShown; ++i) {
        const IcatUnencodable& u = list[i];
        text += QStringLiteral("\r\n受注番号 %1　項目 %2　「%3」 U+%4")
                    .arg(u.denno)
                    .arg(u.field)
                    .arg(u.character)
                    .arg(QString::number(u.codePoint, 16).toUpper().rightJustified(4, QLatin1Char('0')));
    }
    if (list.size() > kShown) text += QStringLiteral("\r\nほか %1 文字").arg(list.size() - kShown);
    return text;
}

IcatExportJob::Result IcatExportJob::run(const Input& in, Interaction& ui)
{
    Result r;
    r.missing = firstEmpty(in);
    if (r.missing >= 0) {
        r.outcome = Outcome::Missing;
        ui.msg(QStringLiteral("未記入"));
        return r;
    }
    ui.lock(true);
    ui.status(QStringLiteral("処理中・・・"));
    ui.yieldOnce();
    const auto unlock = [&](Outcome outcome) {
        r.outcome = outcome;
        ui.status(QString());
        ui.lock(false);
        return r;
    };

    r.selection = selection(in);
    if ((r.selection.datesSwapped || r.selection.numbersSwapped) && showSelection) showSelection(r.selection);
    const Selection& s = r.selection;

    // Lines without their sender, or no lines at all, must not pass for an export: these reads are not passed over.
    if (!shopError_.isEmpty()) {
        ui.readError(shopError_);
        return unlock(Outcome::ReadFailed);
    }
    const Sql query =
        Sql("select *") + "  from jyuden d,member m,member jm" + " where d.omcode=m.code" + "   and d.mcode = jm.code" +
        "   and d.denno between " + Sql::n(s.dennoFrom) + " and " + Sql::n(s.dennoTo) + "   and d.denku = 0" +
        "   and d.oflag =" + (in.reprint ? Sql("1") : Sql("0")) + "   and d.sday between " + Sql::n(s.dateFrom) +
        " and " + Sql::n(s.dateTo) + "   and d.hcode = " + Sql::n(in.kind) + " order by sday,denno";
    Recordset rs;
    if (!db_.DbSql(query, rs)) {
        ui.readError(db_.ErrMsg());
        return unlock(Outcome::ReadFailed);
    }
    r.count = rs.recordCount();
    if (r.count == 0) {
        // the button code is the one the screen always used; the answer does not matter
        ui.messageBox(QStringLiteral("該当件数は０件です"), mb::Information | mb::CancelTryContinue,
                      QStringLiteral("確認"));
        return unlock(Outcome::NoOrders);
    }
    if (ui.messageBox(QStringLiteral("該当件数は") + QString::number(r.count) +
                          QStringLiteral("件です。作成しますか？"),
                      mb::Information | mb::YesNo, QStringLiteral("確認")) != answer::Yes)
        return unlock(Outcome::Refused);

    OutputFile::Mode mode = OutputFile::Mode::Replace;
    if (QFileInfo(in.file).isFile()) {
        const int a = ui.messageBox(QStringLiteral("ファイル <") + in.file + QStringLiteral("> が存在します。") +
                                        QStringLiteral("\r\nデータを上書しますか？\r\nはい:上書 いいえ:追加"),
                                    mb::Question | mb::YesNoCancel, QStringLiteral("確認"));
        if (a == answer::No)
            mode = OutputFile::Mode::Append;
        else if (a != answer::Yes)
            return unlock(Outcome::Abandoned);
    }
    // Written beside the file and put in place at the end: a failed run leaves an existing file as it was. A file
    // that cannot be written ends the run before anything is marked.
    OutputFile file(in.file);
    if (!file.open(mode)) {
        ui.msg(QStringLiteral("ファイルエラー"));
        return unlock(Outcome::FileError);
    }
    const auto failed = [&] {
        ui.messageBox(file.failureText(), mb::OkOnly | mb::Exclamation, kProductTitle);
        return unlock(Outcome::FileError);
    };

    std::vector<qint64> exported;
    exported.reserve(static_cast<size_t>(r.count));
    const Columns columns(rs);
    Sender shop;
    if (shop_.isOpen() && !shop_.eof()) {
        const auto v = [&](const char* c) { return shop_.text(shop_.fieldIndex(QString::fromLatin1(c))); };
        shop = {v("tel"), v("name"), v("zip"), v("adr1"), v("adr2"), v("adr3"), v("adr4")};
    }
    QHash<QString, QString> dates;
    QString buffer;
    for (rs.moveFirst(); !rs.eof(); rs.moveNext()) {
        // the flag stays set after a No, so the question comes again before every following order
        if (ui.cancelRequested() && ui.msg(QStringLiteral("処理中止"), QString(), true) == answer::Yes) {
            // the lines so far stay, as a stopped run always left them
            if (!file.commit()) return failed();
            return unlock(Outcome::Stopped);
        }
        const QStringList fields = lineFields(rs, columns, shop, dates);
        const qint64 denno = fields[1].toLongLong();
        QByteArray line = encodeLine(fields, denno, r.unencodable, buffer);
        line += "\r\n";
        if (!file.write(line)) return failed();
        ++r.written;
        exported.push_back(denno);
        ui.yieldOnce();
    }
    r.exported = static_cast<qint64>(exported.size());
    if (!file.commit()) return failed();
    ui.msg(QStringLiteral("ＣＳＶ出力"));
    if (!r.unencodable.isEmpty()) ui.messageBox(unencodableReport(r.unencodable), mb::Exclamation, kProductTitle);

    // A reprint flags orders that are flagged already: nothing to ask.
    const bool mark = in.reprint || ui.messageBox(QStringLiteral("印刷した受注伝票を送り状印刷済みに更新しますか？"),
                                                  mb::Question | mb::YesNo, QStringLiteral("確認")) == answer::Yes;
    if (mark) {
        // one transaction per order: a failure part-way keeps the orders flagged before it and stops there, so
        // that no order counts as flagged unless its commit went through
        bool failed = false;
        for (const qint64 denno : exported) {
            bool ok =
                db_.BeginTns() && db_.DbSqlExec(Sql("update jyuden set oflag = 1 where denno = ") + Sql::n(denno));
            const long flagged = ok ? db_.RecCnt() : 0;
            failed = !(ok && db_.CommitTns());
            if (failed) {
                const QString why = db_.ErrMsg();
                (void)db_.RollbackTns();
                ui.msg(QStringLiteral("記録エラー"), why);
                break;
            }
            r.marked += flagged;
            ui.yieldOnce();
        }
        opeLog(kCaption, 2, QString::number(r.marked) + QStringLiteral("件"));
        if (failed) return unlock(Outcome::MarkFailed);
    }
    return unlock(Outcome::Done);
}

} // namespace pel
