#pragma once
// Pieces shared by the shipping tests: a small shop, the export's questions, the carrier's result lines and the
// files as the carrier reads and writes them.
#include "app/cp932.h"
#include "tests/support/suitehome.h"

#include <QFile>
#include <QStringList>

namespace pel::test {

// The shop record, six customers and orders covering the line's rules (gift and not, no telephone, company, cool
// classes, time slots, delivery dates, a long note, characters without a CP932 form, commas), orders the default
// selection leaves out (kind 10, label-printed, not an order, a later day) and orders of kinds 4, 6 and 8.
inline QStringList shippingTestRows()
{
    return {
        "INSERT INTO sysfile (id,name,zip,adr1,adr2,adr3,adr4,tel,rnou) VALUES "
        "(1,'有限会社テスト商店','150-0001','東京都','渋谷区','１－２','ビル3F','03-1111-2222',0)",
        "INSERT INTO member (code,name,zip,adr1,adr2,adr3,adr4,tel,keitai,sex) VALUES "
        "(1,'山田 太郎','100-0001','東京都','千代田区','1-1','','03-0000-0001','090-0000-0001',1),"
        "(2,'株式会社テスト','530-0002','大阪府','大阪市北区','3-3','５Ｆ','','',3),"
        "(3,'佐藤花子','9000001','沖縄県','那覇市','4-4','ハイツ①','','080-3333-4444',NULL),"
        "(4,'ギフト 送り主','060-0004','北海道','札幌市','2-2','','','070-4444-5555',2),"
        "(5,'𠮷田 次郎','812-0005','福岡県','福岡市','5-5','','092-555-5555','',1),"
        "(6,'山田, 三郎','100-0001','東京都','千代田区','1-1','','03-0000-0006','',1)",
        // denno, mcode, omcode, denku, sday, hcode, chilled, gift, haiday, htime, memo, total, oflag
        "INSERT INTO jyuden (denno,mcode,omcode,denku,sday,hcode,chilled,gift,haiday,htime,memo,total,oflag) VALUES "
        "(101,1,1,0,20250301,9,1,0,20250305,1,'割れ物注意',5400,0),"
        "(102,4,2,0,20250301,9,2,1,0,6,'お中元・のし紙（外のし）をお願いします。よろしくお願いいたします',12000,0),"
        "(110,1,3,0,20250301,9,0,0,NULL,2,'',0,0),"
        "(103,3,3,0,20250302,9,3,0,0,7,'',800,0),"
        "(104,5,5,0,20250302,9,NULL,2,20250306,3,'要冷蔵🍣',3300,0),"
        "(105,1,1,0,20250303,10,0,0,0,4,'',1000,0),"
        "(106,1,1,0,20250303,9,0,0,0,5,'',2000,1),"
        "(107,1,1,1,20250303,9,0,0,0,0,'',3000,0),"
        "(108,1,1,0,20250311,9,0,0,0,0,'',4000,0),"
        "(121,6,6,0,20250302,4,0,0,0,0,'のし, 赤',100,0),(122,6,6,0,20250301,4,0,0,0,0,'',100,0),"
        "(123,1,1,0,20250301,6,0,0,0,0,'',100,0),(124,1,1,0,20250301,8,0,0,0,0,'',100,0)",
    };
}

inline QString countQuestion(int n)
{
    return QStringLiteral("該当件数は%1件です。作成しますか？").arg(n);
}
const QString kMarkQuestion = QStringLiteral("印刷した受注伝票を送り状印刷済みに更新しますか？");
// the characters of order 104 that have no CP932 form
const QString kUnencodable104 = QStringLiteral("Shift-JIS にない文字を「?」で書き出しました（3 文字）\r\n"
                                               "受注番号 104　項目 8　「𠮷」 U+20BB7\r\n"
                                               "受注番号 104　項目 18　「𠮷」 U+20BB7\r\n"
                                               "受注番号 104　項目 31　「🍣」 U+1F363");

// A result line: the shipping line's 46 fields, the tracking number as field 47.
inline QString resultLine(const QString& denno, const QString& tracking,
                          const QString& name = QStringLiteral("山田 太郎"))
{
    QStringList f(46);
    f[0] = QStringLiteral("2025/03/01");
    f[1] = denno;
    f[7] = name;
    return f.join(QLatin1Char(',')) + QLatin1Char(',') + tracking;
}

// Lines written as CP932, each ended by CR LF.
inline bool writeLines(const QString& path, const QStringList& lines)
{
    QByteArray bytes;
    for (const QString& l : lines)
        bytes += Cp932::encode(l).value_or("<not CP932>") + "\r\n";
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// A file's lines as the carrier reads them: CP932, each ended by CR LF.
inline QStringList readLines(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {QStringLiteral("<missing>")};
    QStringList lines =
        Cp932::decode(f.readAll()).value_or(QStringLiteral("<not CP932>")).split(QStringLiteral("\r\n"));
    if (lines.last().isEmpty())
        lines.removeLast();
    else
        lines.last() += QStringLiteral("<no CR LF>");
    return lines;
}

} // namespace pel::test
