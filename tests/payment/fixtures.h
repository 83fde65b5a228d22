#pragma once
// A small shop for the payment import: two customers, seven orders (1006 paid already), the agency 908997 with the
// record layouts of 908997 and 929023, and builders of the agencies' record lines.
#include "app/cp932.h"
#include "app/db/dbglobals.h"
#include "tests/support/suitehome.h"

#include <QFile>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

namespace pel::test {

inline QStringList shopRows()
{
    return {
        QStringLiteral("INSERT INTO cvsset (code,cfcode1,ckcode1,cvkbn) VALUES (1,'908997','1234',1)"),
        QStringLiteral("INSERT INTO cvsini (code,kubun,name,sokuk,sokum,kakuk,kakum,torik,torim,dno1,fcd,scd,nen,tuki,"
                       "hi,ji,hun,money,cvscode,cvstenpo) VALUES ('908997',0,'アプラス',2.06,8.1,18.06,24.1,34.06,"
                       "40.1,4.14,18.05,23.04,27.04,31.02,33.02,35.02,37.02,39.1,49.04,53.07)"),
        QStringLiteral("INSERT INTO cvsini (code,kubun,name,fcd,cfcd,scd,cscd,dno1,cdno1,money,cmoney,nen,cnen,tuki,"
                       "ctuki,hi,chi,cvscode,ccvscode) VALUES ('929023',1,'ＤＳＫ',1.06,2,1.05,3,1.17,4,1.1,5,1.04,6,"
                       "5.02,6,7.02,6,1.04,8)"),
        QStringLiteral("INSERT INTO member (code,name) VALUES (101,'山田 太郎')"),
        QStringLiteral("INSERT INTO member (code,name) VALUES (102,'ｻﾄｳ ﾊﾅｺ')"),
        QStringLiteral("INSERT INTO jyuden (denno,mcode,pcode,total) VALUES (1001,101,6,5000)"),
        QStringLiteral("INSERT INTO jyuden (denno,mcode,pcode,total) VALUES (1002,102,6,3000)"),
        QStringLiteral("INSERT INTO jyuden (denno,mcode,pcode,total) VALUES (1003,101,6,12345)"),
        QStringLiteral("INSERT INTO jyuden (denno,mcode,pcode,total) VALUES (1004,102,6,800)"),
        QStringLiteral("INSERT INTO jyuden (denno,mcode,pcode,total) VALUES (1005,101,6,2000)"),
        QStringLiteral("INSERT INTO jyuden (denno,mcode,pcode,total) VALUES (1006,102,6,7000)"),
        QStringLiteral("INSERT INTO jyuden (denno,mcode,pcode,total) VALUES (1007,101,6,4000)"),
        QStringLiteral("INSERT INTO inmoney (denno,nday,pcode,money,inflag) VALUES (1006,20240101,6,7000,1)"),
    };
}

const QString kStart = QStringLiteral("作業を開始しますか？");

// The dialogs of a run that goes to its end: start, closing count, the backup question.
inline void expectFullRun(ScriptedDialogs& d, qint64 posted, int backup = answer::No)
{
    d.expect(kStart, answer::Yes);
    d.expect(QString::number(posted) + QStringLiteral("件の入金処理をしました"), answer::Ok);
    d.expect(QStringLiteral("読込データをバックアップしますか？"), backup);
}

// The shop's home for one test with the program's connection open (attempts against a lock kept short).
inline void openShop(std::unique_ptr<TestHome>& home)
{
    qputenv("PEL008_LOCK_WAIT_MS", "20");
    openHome(home, shopRows());
}

inline void closeShop(std::unique_ptr<TestHome>& home)
{
    gclsDb.reset(); // the layout loader's connection
    closeHome(home);
}

inline QString digitsOf(qint64 value, int width)
{
    return QString::number(value).rightJustified(width, QLatin1Char('0'));
}

// A data record of the fixed-width format (agency item at column 18, five characters).
inline QString fwRecord(const QString& code, qint64 denno, qint64 money,
                        const QString& agency = QStringLiteral("08997"), qint64 day = 20240510)
{
    return (QStringLiteral("2") + code + digitsOf(denno, 14) + agency + QStringLiteral("1234") + QString::number(day) +
            QStringLiteral("1030") + digitsOf(money, 10) + QStringLiteral("0001") + QStringLiteral("0012345"))
        .leftJustified(80, QLatin1Char(' '));
}

inline QString fwHeader()
{
    return QStringLiteral("1908997202405120000SAKURA BUSSAN").leftJustified(80, QLatin1Char(' '));
}

// The trailer: 速報, 確報 (zero) and 取消 count/amount; postal count/amount at columns 50 and 56.
inline QString fwTrailer(qint64 sokuk, qint64 sokum, qint64 torik, qint64 torim, qint64 postalK = 0, qint64 postalM = 0)
{
    return (QStringLiteral("8") + digitsOf(sokuk, 6) + digitsOf(sokum, 10) + digitsOf(0, 6) + digitsOf(0, 10) +
            digitsOf(torik, 6) + digitsOf(torim, 10) + digitsOf(postalK, 6) + digitsOf(postalM, 10))
        .leftJustified(80, QLatin1Char(' '));
}

inline QString csvRecord(const QString& code, const QString& denno, qint64 money,
                         const QString& agency = QStringLiteral("929023"), qint64 day = 20240511)
{
    return QStringLiteral("\"%1\",\"%2\",\"12345\",\"%3\",\"%4\",\"%5\",\"1415\",\"0002\",\"0045678\"")
        .arg(code, agency, denno)
        .arg(money)
        .arg(day);
}

inline QByteArray cp932Lines(const QStringList& lines, const QByteArray& eol = "\r\n", bool lastBreak = true)
{
    QByteArray out;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        out += *Cp932::encode(lines[i]);
        if (lastBreak || i + 1 < lines.size())
            out += eol;
    }
    return out;
}

inline bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

// Lines added at the end of the home's mirabo.ini.
inline bool appendIni(const TestHome& home, const QByteArray& lines)
{
    QFile ini(home.file(QStringLiteral("mirabo.ini")));
    return ini.open(QIODevice::Append) && ini.write(lines) == lines.size() && ini.flush();
}

// The fonts of a PDF as pdffonts lists them; nullopt when pdffonts is not installed.
inline std::optional<QString> pdfFonts(const QString& pdf)
{
    QProcess fonts;
    fonts.start(QStringLiteral("pdffonts"), {pdf});
    if (!fonts.waitForFinished(20000))
        return std::nullopt;
    return QString::fromUtf8(fonts.readAllStandardOutput());
}

// One record paid in full, with its header and trailer.
inline QStringList fwOne()
{
    return {fwHeader(), fwRecord(QStringLiteral("01"), 1001, 5000), fwTrailer(1, 5000, 0, 0)};
}

// The fixed-width file most tests read: every outcome of the format once.
//   01 1001 5000 ○ | 01 1002 2900 △ | 12 1003 12345 ○ | 22 1004 500 ○ | 03 1005 取消 | 02 skipped |
//   01 99999999 no order | 03 99999998 no order (取消) | 01 1006 paid already | 01 1007 wrong agency
inline QStringList fwBasic()
{
    return {fwHeader(),
            fwRecord(QStringLiteral("01"), 1001, 5000),
            fwRecord(QStringLiteral("01"), 1002, 2900),
            fwRecord(QStringLiteral("12"), 1003, 12345),
            fwRecord(QStringLiteral("22"), 1004, 500),
            fwRecord(QStringLiteral("03"), 1005, 2000),
            fwRecord(QStringLiteral("02"), 1001, 5000),
            fwRecord(QStringLiteral("01"), 99999999, 3000),
            fwRecord(QStringLiteral("03"), 99999998, 1200),
            fwRecord(QStringLiteral("01"), 1006, 7000),
            fwRecord(QStringLiteral("01"), 1007, 4000, QStringLiteral("09999")),
            fwTrailer(5, 5000 + 2900 + 3000 + 7000 + 4000, 2, 3200, 2, 12845),
            QStringLiteral("9").leftJustified(80, QLatin1Char(' '))};
}

} // namespace pel::test
