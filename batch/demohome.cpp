#include "batch/demohome.h"

#include "app/cp932.h"
#include "app/db/connection.h"
#include "app/db/schema.h"
#include "app/inifile.h"
#include "app/interaction.h"
#include "shipping/icatexportjob.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QMap>
#include <QSaveFile>

#include <random>

namespace pel::demo {
namespace {

struct NamePart {
    const char16_t* kanji;
    const char16_t* kana;
};

const NamePart kFamily[] = {
    {u"佐藤", u"ｻﾄｳ"},     {u"鈴木", u"ｽｽﾞｷ"},   {u"髙橋", u"ﾀｶﾊｼ"},   {u"田中", u"ﾀﾅｶ"},   {u"伊藤", u"ｲﾄｳ"},
    {u"渡辺", u"ﾜﾀﾅﾍﾞ"}, {u"山本", u"ﾔﾏﾓﾄ"},   {u"中村", u"ﾅｶﾑﾗ"},   {u"小林", u"ｺﾊﾞﾔｼ"}, {u"加藤", u"ｶﾄｳ"},
    {u"吉田", u"ﾖｼﾀﾞ"},   {u"山田", u"ﾔﾏﾀﾞ"},   {u"佐々木", u"ｻｻｷ"},  {u"山口", u"ﾔﾏｸﾞﾁ"}, {u"松本", u"ﾏﾂﾓﾄ"},
    {u"井上", u"ｲﾉｳｴ"},   {u"木村", u"ｷﾑﾗ"},     {u"斎藤", u"ｻｲﾄｳ"},   {u"清水", u"ｼﾐｽﾞ"},   {u"宮﨑", u"ﾐﾔｻﾞｷ"},
    {u"森", u"ﾓﾘ"},         {u"長谷川", u"ﾊｾｶﾞﾜ"}, {u"石川", u"ｲｼｶﾜ"},   {u"前田", u"ﾏｴﾀﾞ"},   {u"藤原", u"ﾌｼﾞﾜﾗ"},
};
const NamePart kGiven[] = {
    {u"太郎", u"ﾀﾛｳ"},   {u"花子", u"ﾊﾅｺ"},   {u"一郎", u"ｲﾁﾛｳ"},   {u"美咲", u"ﾐｻｷ"},   {u"健太", u"ｹﾝﾀ"},
    {u"陽子", u"ﾖｳｺ"},   {u"大輔", u"ﾀﾞｲｽｹ"}, {u"由美", u"ﾕﾐ"},     {u"翔", u"ｼｮｳ"},     {u"さくら", u"ｻｸﾗ"},
    {u"誠", u"ﾏｺﾄ"},     {u"恵子", u"ｹｲｺ"},   {u"浩二", u"ｺｳｼﾞ"},   {u"明美", u"ｱｹﾐ"},   {u"隆", u"ﾀｶｼ"},
};
const NamePart kCompanies[] = {
    {u"株式会社みどり商事", u"ﾐﾄﾞﾘｼｮｳｼﾞ"},   {u"有限会社ソ表工房", u"ｿﾋｮｳｺｳﾎﾞｳ"},
    {u"合同会社ひかり食品", u"ﾋｶﾘｼｮｸﾋﾝ"},     {u"株式会社山海堂", u"ｻﾝｶｲﾄﾞｳ"},
    {u"医療法人さくら会", u"ｻｸﾗｶｲ"},         {u"株式会社ＡＢＣトレーディング", u"ｴｰﾋﾞｰｼｰﾄﾚｰﾃﾞｨﾝｸﾞ"},
};
struct Place {
    const char16_t* pref;
    const char16_t* city;
    const char* zip3;
    const char* area;
};
const Place kPlaces[] = {
    {u"東京都", u"渋谷区神宮前", "150", "03"},    {u"東京都", u"世田谷区三軒茶屋", "154", "03"},
    {u"大阪府", u"大阪市北区梅田", "530", "06"},  {u"北海道", u"札幌市中央区大通西", "060", "011"},
    {u"愛知県", u"名古屋市中区栄", "460", "052"}, {u"福岡県", u"福岡市博多区博多駅前", "812", "092"},
    {u"京都府", u"京都市左京区下鴨", "606", "075"}, {u"沖縄県", u"那覇市久茂地", "900", "098"},
    {u"宮城県", u"仙台市青葉区一番町", "980", "022"}, {u"広島県", u"広島市中区紙屋町", "730", "082"},
};
const char16_t* const kBuildings[] = {u"", u"", u"", u"メゾン髙島２０１", u"サンハイツ１０２号", u"コーポ①棟３Ｆ",
                                       u"グランドタワー１５０５", u"～ヴィラ～南館"};
struct Goods {
    const char* code;
    const char16_t* name;
    const char16_t* kana;
    int price;
};
const Goods kGoods[] = {
    {"G0001", u"有機緑茶 100g", u"ﾕｳｷﾘｮｸﾁｬ", 1080},           {"G0002", u"ほうじ茶ティーバッグ 30袋", u"ﾎｳｼﾞﾁｬ", 864},
    {"G0003", u"紀州南高梅 梅干し 500g", u"ｳﾒﾎﾞｼ", 2980},       {"G0004", u"讃岐うどん 6人前", u"ｻﾇｷｳﾄﾞﾝ", 1500},
    {"G0005", u"北海道産じゃがいも 5kg", u"ｼﾞｬｶﾞｲﾓ", 2200},     {"G0006", u"天然いくら醤油漬け 250g", u"ｲｸﾗ", 4980},
    {"G0007", u"黒毛和牛すき焼き用 400g", u"ﾜｷﾞｭｳ", 6480},      {"G0008", u"冷凍ずわい蟹 1kg", u"ｽﾞﾜｲｶﾞﾆ", 8800},
    {"G0009", u"手作り味噌 1kg", u"ﾐｿ", 1296},                   {"G0010", u"国産はちみつ 300g", u"ﾊﾁﾐﾂ", 2160},
    {"G0011", u"今治タオル フェイス２枚組", u"ﾀｵﾙ", 1650},       {"G0012", u"信州そば 乾麺 ５束", u"ｿﾊﾞ", 1200},
    {"G0013", u"高知産ゆずポン酢 360ml", u"ﾎﾟﾝｽﾞ", 756},        {"G0014", u"鹿児島黒豚しゃぶしゃぶ 500g", u"ｸﾛﾌﾞﾀ", 3980},
    {"G0015", u"アイスクリーム詰合せ １２個", u"ｱｲｽ", 3240},     {"G0016", u"贈答用 果物かご", u"ｸﾀﾞﾓﾉ", 5400},
};
const char* const kFreeItem = "pQ3r8t5w2yKm";
const char16_t* const kMemos[] = {u"", u"", u"", u"割れ物注意", u"不在時は宅配ボックスへ", u"お中元・のし紙（外のし）",
                                   u"午前中指定のお客様です。よろしくお願いします。"};
// payment methods: 1 cash on delivery, 2 bank transfer, 3 postal transfer, 4 card, 5 deferred, 6 convenience store
const int kPayments[] = {1, 1, 2, 3, 4, 4, 5, 6, 6, 6};
const int kLabelKinds[] = {9, 9, 9, 10, 10, 1, 5, 7};

class Gen {
public:
    explicit Gen(quint64 seed) : rng_(seed) {}
    int between(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
    bool chance(int percent) { return between(0, 99) < percent; }
    template <typename T, size_t N> const T& pick(const T (&a)[N]) { return a[static_cast<size_t>(between(0, int(N) - 1))]; }

private:
    std::mt19937_64 rng_;
};

int ymd(const QDate& d)
{
    return d.year() * 10000 + d.month() * 100 + d.day();
}

QString digits(int v, int width)
{
    return QStringLiteral("%1").arg(v, width, 10, QLatin1Char('0'));
}

QString rightPad(const QString& s, int width)
{
    return s.leftJustified(width, QLatin1Char(' '), true);
}

struct Member {
    int code;
    QString name, sname, kana, zip, adr1, adr2, adr3, adr4, tel, keitai;
    int sex;
};

struct Order {
    int denno, mcode, omcode, sday, hcode, chilled, gift, haiday, htime, pcode, cflag, oflag;
    qint64 total;
    QString memo, okurino;
};

bool writeCp932(const QString& path, const QStringList& lines, QString* error)
{
    QByteArray bytes;
    for (const QString& l : lines) {
        Cp932Error e;
        const auto b = Cp932::encode(l, &e);
        if (!b) {
            *error = e.message;
            return false;
        }
        bytes += *b + "\r\n";
    }
    QSaveFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size() || !f.commit()) {
        *error = QStringLiteral("cannot write %1").arg(path);
        return false;
    }
    return true;
}

// Record layouts of the sample files (cvsini): start.length positions and CSV field numbers.
struct LayoutRow {
    const char* code;
    int kubun;
    const char16_t* name;
    QList<QPair<const char*, double>> values;
};

const LayoutRow kLayouts[] = {
    {"908997", 0, u"アプラス",
     {{"sokuk", 2.06}, {"sokum", 8.10}, {"kakuk", 18.06}, {"kakum", 24.10}, {"torik", 34.06}, {"torim", 40.10},
      {"dno1", 4.14}, {"fcd", 18.05}, {"scd", 23.04}, {"nen", 27.04}, {"tuki", 31.02}, {"hi", 33.02}, {"ji", 35.02},
      {"hun", 37.02}, {"money", 39.10}, {"cvscode", 49.04}, {"cvstenpo", 53.07}, {"idno", 60.14}, {"bun", 74.01},
      {"syschk", 75.01}}},
    {"929023", 0, u"ＤＳＫ",
     {{"sokuk", 2.06}, {"sokum", 8.10}, {"kakuk", 18.06}, {"kakum", 24.10}, {"torik", 34.06}, {"torim", 40.10},
      {"dno1", 4.17}, {"fcd", 21.06}, {"scd", 27.05}, {"nen", 32.04}, {"tuki", 36.02}, {"hi", 38.02},
      {"money", 40.10}, {"cvscode", 50.04}, {"cvstenpo", 54.07}}},
    {"929023", 1, u"ＤＳＫ",
     {{"fcd", 1.06}, {"cfcd", 2}, {"scd", 1.05}, {"cscd", 3}, {"dno1", 1.17}, {"cdno1", 4}, {"money", 1.10},
      {"cmoney", 5}, {"nen", 1.04}, {"cnen", 6}, {"tuki", 5.02}, {"ctuki", 6}, {"hi", 7.02}, {"chi", 6},
      {"ji", 1.02}, {"cji", 7}, {"hun", 3.02}, {"chun", 7}, {"cvscode", 1.04}, {"ccvscode", 8}, {"cvstenpo", 1.07},
      {"ccvstenpo", 9}}},
};


// Answers every question of the export with its default button (Yes to the count), silently.
class QuietDialogs final : public DialogService {
public:
    int messageBox(const QString&, int style, const QString&) override { return defaultAnswer(style); }
};

// The result file I-CAT gives back: the shipping lines of up to ten label-printed orders of kinds 9 and 10 without a
// tracking number, as the export job writes them, each with a tracking number added, and one unknown order.
bool writeIcatResult(const QString& home, const std::vector<Order>& orders, const QString& path, QString* error)
{
    std::vector<const Order*> wanted;
    for (const Order& o : orders)
        if (o.oflag && (o.hcode == 9 || o.hcode == 10) && o.okurino.isEmpty() && wanted.size() < 10)
            wanted.push_back(&o);
    QStringList lines;
    QString first;
    if (!wanted.empty()) {
        // the job works on the program folder's database
        const QByteArray previousHome = qgetenv("PEL008_HOME");
        qputenv("PEL008_HOME", QDir(home).absolutePath().toLocal8Bit());
        QuietDialogs quiet;
        DialogService* previousDialogs = setDialogService(&quiet);
        QMap<int, QString> byDenno;
        int firstDay = wanted.front()->sday, lastDay = firstDay;
        for (const Order* o : wanted)
            firstDay = std::min(firstDay, o->sday), lastDay = std::max(lastDay, o->sday);
        {
            clsDbClass db;
            if (db.OpenDb()) {
                IcatExportJob job(db);
                job.loadShop();
                for (const int kind : {9, 10}) {
                    const QString part = QDir(home).filePath(QStringLiteral("out/icat_kind%1.csv").arg(kind));
                    QFile::remove(part);
                    IcatExportJob::Input in;
                    for (int i = 0; i < 2; ++i) {
                        const QString day = QString::number(i == 0 ? firstDay : lastDay);
                        in.yy[i] = day.left(4), in.mm[i] = day.mid(4, 2), in.dd[i] = day.mid(6, 2);
                    }
                    in.denno[0] = QString::number(wanted.front()->denno);
                    in.denno[1] = QString::number(wanted.back()->denno);
                    in.file = part;
                    in.kind = kind;
                    in.reprint = true; // the orders are label-printed already
                    Interaction ui;
                    job.run(in, ui);
                    QFile f(part);
                    if (f.open(QIODevice::ReadOnly))
                        for (const QByteArray& l : f.readAll().split('\n'))
                            if (!l.trimmed().isEmpty()) {
                                const QString line = Cp932::decode(l.trimmed()).value_or(QString());
                                byDenno.insert(line.section(QLatin1Char(','), 1, 1).toInt(), line);
                            }
                    f.remove();
                }
            }
            db.CloseDb();
        }
        setDialogService(previousDialogs);
        qputenv("PEL008_HOME", previousHome);
        for (const Order* o : wanted)
            if (byDenno.contains(o->denno)) {
                if (first.isEmpty())
                    first = byDenno.value(o->denno);
                lines << byDenno.value(o->denno) + QStringLiteral(",4%1").arg(digits(o->denno, 11));
            }
    }
    if (!first.isEmpty()) {
        QStringList unknown = first.split(QLatin1Char(','));
        unknown[1] = QStringLiteral("99999999");
        lines << unknown.join(QLatin1Char(',')) + QStringLiteral(",499999999999");
    }
    return writeCp932(path, lines, error);
}
} // namespace

bool makeDemoHome(const QString& home, const Options& options, Summary* summary, QString* error)
{
    QDir dir(home);
    if (!dir.mkpath(QStringLiteral(".")) || !dir.mkpath(QStringLiteral("samples")) || !dir.mkpath(QStringLiteral("out"))) {
        *error = QStringLiteral("cannot create %1").arg(home);
        return false;
    }
    const QString dbPath = dir.filePath(QStringLiteral("data1.dat"));
    auto db = Connection::create();
    if (options.dbserver.isEmpty()) {
        if (!createSqliteDatabase(dbPath, error) ||
            !db->open(QStringLiteral("Data Source=") + dbPath + QLatin1Char(';'), error))
            return false;
    } else {
        if (!db->open(QStringLiteral("provider=PostgreSQL;Data Source=") + options.dbserver, error))
            return false;
        if (db->tables().contains(QStringLiteral("jyuden"))) {
            *error = QStringLiteral("the server's database already holds the tables: the demo needs an empty one");
            return false;
        }
        if (!createSchema(*db, error))
            return false;
    }
    if (!db->begin(error))
        return false;
    Gen g(options.seed);
    const QDate today = QDate::currentDate();
    const auto fail = [&](const QString& e) {
        *error = e;
        QString ignored;
        (void)db->rollback(&ignored);
        return false;
    };

    // shop, settings, classifications, layouts
    QString e;
    if (!db->executeRaw(QStringLiteral("INSERT INTO sysfile (id,name,zip,adr1,adr2,adr3,adr4,tel,fax,mail,conveni,rnou) "
                                       "VALUES (1,?,?,?,?,?,?,?,?,?,1,0)"),
                        {QStringLiteral("有限会社さくら物産"), QStringLiteral("150-0001"), QStringLiteral("東京都"),
                         QStringLiteral("渋谷区神宮前"), QStringLiteral("１－２－３"), QStringLiteral("さくらビル５Ｆ"),
                         QStringLiteral("03-5555-0101"), QStringLiteral("03-5555-0102"),
                         QStringLiteral("shop@sakura-bussan.example")},
                        &e) ||
        !db->executeRaw(QStringLiteral("INSERT INTO cvsset (code,cfcode1,ckcode1,cvkbn) VALUES (1,'908997','1234',1)"), {},
                        &e))
        return fail(e);
    const QList<QPair<int, QPair<QString, int>>> kinds = {
        {1, {QStringLiteral("ゆうパック"), 0}},       {2, {QStringLiteral("ゆうパケット"), 0}},
        {5, {QStringLiteral("宅配便（元払）"), 3}},   {7, {QStringLiteral("メール便"), 0}},
        {8, {QStringLiteral("宅急便タイム"), 0}},     {9, {QStringLiteral("宅急便"), 1}},
        {10, {QStringLiteral("宅急便コレクト"), 2}},  {12, {QStringLiteral("クール宅急便"), 0}},
    };
    for (const auto& k : kinds)
        if (!db->executeRaw(QStringLiteral("INSERT INTO bunrui (kubun,code,name,jun) VALUES (3,?,?,?)"),
                            {k.first, k.second.first, k.second.second}, &e))
            return fail(e);
    for (const LayoutRow& l : kLayouts) {
        QStringList cols{QStringLiteral("code"), QStringLiteral("kubun"), QStringLiteral("name")};
        QVariantList vals{QString::fromLatin1(l.code), l.kubun, QString::fromUtf16(l.name)};
        for (const auto& v : l.values) {
            cols << QString::fromLatin1(v.first);
            vals << v.second;
        }
        BulkInsert ins(*db, QStringLiteral("cvsini"), cols);
        if (!ins.add(vals, &e))
            return fail(e);
    }
    {
        BulkInsert ins(*db, QStringLiteral("goods"),
                       {QStringLiteral("code"), QStringLiteral("name"), QStringLiteral("kana"), QStringLiteral("tanka"),
                        QStringLiteral("genka")});
        for (const Goods& gd : kGoods)
            if (!ins.add({QString::fromLatin1(gd.code), QString::fromUtf16(gd.name), QString::fromUtf16(gd.kana),
                          gd.price, gd.price * 6 / 10},
                         &e))
                return fail(e);
    }

    // customers
    const int memberCount = std::max(50, options.orders / 3);
    std::vector<Member> members;
    members.reserve(static_cast<size_t>(memberCount));
    {
        BulkInsert ins(*db, QStringLiteral("member"),
                       {QStringLiteral("code"), QStringLiteral("name"), QStringLiteral("sname"), QStringLiteral("kana"),
                        QStringLiteral("zip"), QStringLiteral("adr1"), QStringLiteral("adr2"), QStringLiteral("adr3"),
                        QStringLiteral("adr4"), QStringLiteral("tel"), QStringLiteral("keitai"), QStringLiteral("sex"),
                        QStringLiteral("rday"), QStringLiteral("mail")});
        for (int i = 1; i <= memberCount; ++i) {
            Member m;
            m.code = i;
            if (g.chance(6)) {
                const NamePart& c = g.pick(kCompanies);
                m.name = m.sname = QString::fromUtf16(c.kanji);
                m.kana = QString::fromUtf16(c.kana);
                m.sex = 3;
            } else {
                const NamePart& f = g.pick(kFamily);
                const NamePart& gv = g.pick(kGiven);
                const int style = g.between(0, 9);
                const QString sep = style < 5 ? QStringLiteral(" ") : style < 8 ? QStringLiteral("　") : QString();
                m.name = QString::fromUtf16(f.kanji) + sep + QString::fromUtf16(gv.kanji);
                m.sname = QString::fromUtf16(f.kanji);
                m.kana = QString::fromUtf16(f.kana) + QStringLiteral(" ") + QString::fromUtf16(gv.kana);
                m.sex = g.between(1, 2);
            }
            const Place& p = g.pick(kPlaces);
            m.zip = QString::fromLatin1(p.zip3) + QStringLiteral("-") + digits(g.between(0, 9999), 4);
            m.adr1 = QString::fromUtf16(p.pref);
            m.adr2 = QString::fromUtf16(p.city);
            m.adr3 = QString::number(g.between(1, 9)) + QStringLiteral("丁目") + QString::number(g.between(1, 30)) +
                     QStringLiteral("－") + QString::number(g.between(1, 20));
            m.adr4 = QString::fromUtf16(g.pick(kBuildings));
            const QString area = QString::fromLatin1(p.area);
            if (g.chance(80))
                m.tel = area + QStringLiteral("-%1-%2").arg(digits(g.between(100, 9999), 4 - (area.size() - 2)),
                                                             digits(g.between(0, 9999), 4));
            if (m.tel.isEmpty() || g.chance(30))
                m.keitai = QStringLiteral("090-%1-%2").arg(digits(g.between(0, 9999), 4), digits(g.between(0, 9999), 4));
            if (!ins.add({m.code, m.name, m.sname, m.kana, m.zip, m.adr1, m.adr2, m.adr3, m.adr4, m.tel, m.keitai, m.sex,
                          ymd(today.addDays(-g.between(100, 2000))),
                          m.sex == 3 ? QString() : QStringLiteral("user%1@example.jp").arg(i)},
                         &e))
                return fail(e);
            members.push_back(m);
        }
    }

    // orders and their lines
    std::vector<Order> orders;
    orders.reserve(static_cast<size_t>(options.orders));
    int lineTotal = 0;
    {
        BulkInsert head(*db, QStringLiteral("jyuden"),
                        {QStringLiteral("denno"), QStringLiteral("jday"), QStringLiteral("mcode"), QStringLiteral("omcode"),
                         QStringLiteral("denku"), QStringLiteral("pcode"), QStringLiteral("sday"), QStringLiteral("hcode"),
                         QStringLiteral("chilled"), QStringLiteral("gift"), QStringLiteral("haiday"), QStringLiteral("htime"),
                         QStringLiteral("memo"), QStringLiteral("kingaku"), QStringLiteral("souryo"), QStringLiteral("utax"),
                         QStringLiteral("stax"), QStringLiteral("total"), QStringLiteral("cflag"), QStringLiteral("oflag"),
                         QStringLiteral("okurino")});
        BulkInsert line(*db, QStringLiteral("jyumei"),
                        {QStringLiteral("denno"), QStringLiteral("line"), QStringLiteral("gcode"), QStringLiteral("zgname"),
                         QStringLiteral("suu"), QStringLiteral("tanka"), QStringLiteral("total")});
        BulkInsert paid(*db, QStringLiteral("inmoney"),
                        {QStringLiteral("denno"), QStringLiteral("nday"), QStringLiteral("pcode"), QStringLiteral("money"),
                         QStringLiteral("inflag"), QStringLiteral("sdate")});
        for (int i = 1; i <= options.orders; ++i) {
            Order o{};
            o.denno = i;
            // spread over the last four months, in order-number order
            const int age = 120 - static_cast<int>(120LL * i / std::max(1, options.orders));
            const QDate jday = today.addDays(-age);
            const QDate sday = jday.addDays(g.between(0, 3));
            o.sday = ymd(sday);
            const Member& m = members[static_cast<size_t>(g.between(0, memberCount - 1))];
            o.mcode = m.code;
            o.omcode = g.chance(30) ? members[static_cast<size_t>(g.between(0, memberCount - 1))].code : m.code;
            o.gift = (o.omcode != o.mcode && g.chance(60)) ? 1 : 0;
            o.pcode = g.pick(kPayments);
            o.hcode = g.pick(kLabelKinds);
            o.chilled = g.chance(80) ? 0 : g.between(1, 2);
            o.haiday = g.chance(30) ? ymd(sday.addDays(g.between(1, 4))) : 0;
            o.htime = g.chance(40) ? g.between(1, 6) : 0;
            o.memo = QString::fromUtf16(g.pick(kMemos));
            const bool old = sday < today.addDays(-7);
            o.cflag = (o.pcode == 6 && old && g.chance(85)) ? 1 : 0;
            o.oflag = (old && g.chance(90)) ? 1 : 0;
            if (o.oflag && (o.hcode == 9 || o.hcode == 10) && g.chance(70))
                o.okurino = QStringLiteral("4%1").arg(qint64(g.between(0, 99999)) * 100000 + i % 100000, 11, 10,
                                                      QLatin1Char('0'));
            qint64 goodsTotal = 0;
            const int nLines = g.between(1, 5);
            for (int l = 1; l <= nLines; ++l) {
                const bool free = g.chance(5);
                const Goods& gd = g.pick(kGoods);
                const int qty = g.chance(80) ? 1 : g.between(2, 6);
                const int price = free ? g.between(3, 50) * 100 : gd.price;
                const QString name = free ? QStringLiteral("特注ギフトセット 名入れ「") + m.sname + QStringLiteral("」様")
                                          : QString();
                if (!line.add({o.denno, l, free ? QString::fromLatin1(kFreeItem) : QString::fromLatin1(gd.code), name, qty,
                               price, qint64(qty) * price},
                              &e))
                    return fail(e);
                goodsTotal += qint64(qty) * price;
                ++lineTotal;
            }
            const int souryo = goodsTotal >= 10000 ? 0 : 880;
            const bool separateTax = g.chance(10);
            qint64 stax = 0, utax = 0;
            if (separateTax) {
                stax = (goodsTotal + souryo) / 10;
                o.total = goodsTotal + souryo + stax;
            } else {
                o.total = goodsTotal + souryo;
                utax = o.total * 10 / 110;
            }
            const int denku = g.chance(2) ? 1 : 0;
            if (!head.add({o.denno, ymd(jday), o.mcode, o.omcode, denku, o.pcode, o.sday, o.hcode, o.chilled, o.gift,
                           o.haiday, o.htime, o.memo, goodsTotal, souryo, utax, stax, o.total, o.cflag, o.oflag, o.okurino},
                          &e))
                return fail(e);
            // some older orders are paid already (not the convenience-store ones the sample files pay)
            if (old && o.pcode != 6 && g.chance(50))
                if (!paid.add({o.denno, o.sday, o.pcode, o.total, 1,
                               QDateTime(sday.addDays(3), QTime(10, 0)).toString(QStringLiteral("yyyy/MM/dd HH:mm:ss"))},
                              &e))
                    return fail(e);
            orders.push_back(o);
        }
    }
    if (!db->commit(&e))
        return fail(e);

    // sample files
    QStringList written;
    const QString samples = dir.filePath(QStringLiteral("samples"));
    std::vector<const Order*> billed; // exported to the agency and not paid yet
    for (const Order& o : orders)
        if (o.pcode == 6 && o.cflag == 1)
            billed.push_back(&o);
    const auto payDate = today.addDays(-2);

    // 908997, fixed width: 速報 records, 郵振 records, a 取消, an unknown order, an amount mismatch, a code 02
    {
        QStringList lines;
        lines << rightPad(QStringLiteral("1") + QStringLiteral("908997") + QString::number(ymd(today)) +
                              QStringLiteral("SAKURA BUSSAN"),
                          80);
        int sokuk = 0, postalK = 0, torik = 0;
        qint64 sokum = 0, postalM = 0, torim = 0;
        const auto record = [&](const QString& code, int denno, qint64 money) {
            QString r = QStringLiteral("2") + code + digits(denno, 14) + QStringLiteral("08997") + QStringLiteral("1234") +
                        QString::number(ymd(payDate)) + QStringLiteral("1030") + digits(int(money), 10) +
                        QStringLiteral("0001") + QStringLiteral("0012345") + digits(denno, 14) + QStringLiteral("00");
            lines << rightPad(r, 80);
            if (code == QLatin1String("01")) {
                ++sokuk;
                sokum += money;
            } else if (code == QLatin1String("12") || code == QLatin1String("22")) {
                ++postalK;
                postalM += money;
            } else if (code == QLatin1String("03")) {
                ++torik;
                torim += money;
            }
        };
        const size_t n = std::min<size_t>(billed.size(), 8);
        for (size_t k = 0; k < n; ++k) {
            const Order& o = *billed[k];
            if (k == 2)
                record(QStringLiteral("12"), o.denno, o.total); // postal transfer
            else if (k == 3)
                record(QStringLiteral("01"), o.denno, o.total - 100); // amount differs from the order
            else if (k == 4)
                record(QStringLiteral("03"), o.denno, o.total); // cancellation
            else if (k == 5)
                record(QStringLiteral("02"), o.denno, o.total); // confirmed record: passed over
            else
                record(QStringLiteral("01"), o.denno, o.total);
        }
        record(QStringLiteral("01"), 99999999, 3000); // no such order
        QString trailer = QStringLiteral("8") + digits(sokuk, 6) + digits(int(sokum), 10) + digits(0, 6) + digits(0, 10) +
                          digits(torik, 6) + digits(int(torim), 10) + digits(postalK, 6) + digits(int(postalM), 10);
        lines << rightPad(trailer, 80);
        lines << rightPad(QStringLiteral("9"), 80);
        if (!writeCp932(samples + QStringLiteral("/MT908997.txt"), lines, error))
            return false;
        written << QStringLiteral("samples/MT908997.txt");
        // the same file with a trailer that disagrees with its data
        QStringList bad = lines;
        bad[bad.size() - 2] = rightPad(QStringLiteral("8") + digits(sokuk + 1, 6) + trailer.mid(7), 80);
        if (!writeCp932(samples + QStringLiteral("/MT908997_trailer_error.txt"), bad, error))
            return false;
        written << QStringLiteral("samples/MT908997_trailer_error.txt");
    }
    // 929023, comma-separated
    {
        QStringList lines;
        const size_t from = std::min<size_t>(billed.size(), 8);
        const size_t n = std::min<size_t>(billed.size(), from + 4);
        for (size_t k = from; k < n; ++k) {
            const Order& o = *billed[k];
            const QString ean = k % 2 ? QStringLiteral("EAN") : QString();
            lines << QStringLiteral("\"%1\",\"929023\",\"12345\",\"%2%3\",\"%4\",\"%5\",\"1415\",\"0002\",\"0045678\"")
                         .arg(k == from ? QStringLiteral("1") : QStringLiteral("01"), ean, digits(o.denno, 17))
                         .arg(o.total)
                         .arg(ymd(payDate));
        }
        lines << QStringLiteral("\"03\",\"929023\",\"12345\",\"%1\",\"1200\",\"%2\",\"0900\",\"0002\",\"0045678\"")
                     .arg(digits(99999998, 17))
                     .arg(ymd(payDate));
        if (!writeCp932(samples + QStringLiteral("/MT929023.csv"), lines, error))
            return false;
        written << QStringLiteral("samples/MT929023.csv");
    }
    // mirabo.ini: the database beside the program, the screens' remembered paths on the samples
    const QString ini = dir.filePath(QStringLiteral("mirabo.ini"));
    const QString native = QDir::toNativeSeparators(dir.absolutePath());
    const QString sep = QDir::separator();
    fnPutIni(QStringLiteral("mirabo"), QStringLiteral("dbmode"), QStringLiteral("0"), ini);
    if (!options.dbserver.isEmpty())
        fnPutIni(QStringLiteral("mirabo"), QStringLiteral("dbserver"), options.dbserver, ini);
    fnPutIni(QStringLiteral("CvsRead"), QStringLiteral("ReadFile"), native + sep + QStringLiteral("samples") + sep + QStringLiteral("MT908997.txt"), ini);
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("MakeFile"), native + sep + QStringLiteral("out") + sep + QStringLiteral("icat.csv"), ini);
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ReadFile"), native + sep + QStringLiteral("samples") + sep + QStringLiteral("icat_result.csv"), ini);
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ErrFile"), native + sep + QStringLiteral("out") + sep + QStringLiteral("icat_error.txt"), ini);
    fnPutIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), native + sep + QStringLiteral("out"), ini);

    // the carrier's result file: the export job's own lines of label-printed orders, tracking number as field 47
    if (!writeIcatResult(home, orders, samples + QStringLiteral("/icat_result.csv"), error))
        return false;
    written << QStringLiteral("samples/icat_result.csv");

    summary->orders = options.orders;
    summary->lines = lineTotal;
    summary->members = memberCount;
    summary->files = written;
    return true;
}

} // namespace pel::demo
