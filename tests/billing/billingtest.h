#pragma once
// Pieces shared by the settings and billing tests: the collection settings of a shop using 908997 and the small fixed
// database of the billing export.
#include "tests/support/heldlock.h"
#include "tests/support/suitehome.h"

#include <QString>
#include <QStringList>

namespace pel::test {

inline QStringList collectionRows()
{
    return {"INSERT INTO sysfile (id, name, conveni) VALUES (1, 'shop', 1)",
            "INSERT INTO cvsini (code, kubun) VALUES ('908997', 0), ('929023', 0)",
            "INSERT INTO cvsset (code, cfcode1, ckcode1, cvkbn) VALUES (1, '908997', '1234', 1)"};
}

// Four convenience-store orders of January 2024 (101-104) and four that the selection leaves out (105 another
// payment, 106 already exported, 107 another month, 108 another slip kind).
inline QStringList billingRows()
{
    const QString a19 = QStringLiteral("a") + QString(19, QChar(0x3042));
    const QString a20(20, QChar(0x3042)), a11(11, QChar(0x3042));
    const QString freeName = QStringLiteral("a") + QString(100, QChar(0x3042)); // 201 bytes
    QStringList rows = collectionRows();
    rows.append({
        QStringLiteral("INSERT INTO member (code, name, sname, kana, zip, adr1, adr2, adr3, adr4, tel, keitai) VALUES "
                       "(1, '山田 太郎', '山田', 'ﾔﾏﾀﾞ ﾀﾛｳ', '100-0001', '東京都', '千代田区千代田', '１－１', '', "
                       "'03-1111-2222', '090-0000-0001'), "
                       "(2, '佐藤花子', '佐藤', 'ｻﾄｳ ﾊﾅｺ', '530-0001', '大阪府', '大阪市北区梅田', '', '', '', "
                       "'080-1234-5678'), "
                       "(3, '株式会社 みどり', '株式会社 みどり', 'ｶﾌﾞｼｷｶﾞｲｼｬ ﾐﾄﾞﾘ', '060-0001', '北海道', '%1', '%2', "
                       "'%3', '011-222-3333', ''), "
                       "(4, '\U00020BB7田 一郎', '\U00020BB7田', 'ﾖｼﾀﾞ ｲﾁﾛｳ', '9000001', '沖縄県', '那覇市', '', '', "
                       "'  ', '090-4444-4444')")
            .arg(a19, a20, a11),
        "INSERT INTO goods (code, name) VALUES ('G1', 'りんご'), ('G2', 'みかん')",
        "INSERT INTO jyuden (denno, mcode, omcode, denku, pcode, sday, utax, stax, total, cflag) VALUES "
        "(101, 1, 1, 0, 6, 20240105, 100, 0, 1050001, 0), (102, 2, 3, 0, 6, 20240106, 0, 80, 880, 0), "
        "(103, 3, 3, 0, 6, 20240106, 0, 100, 1100, 0), (104, 4, 4, 0, 6, 20240107, 27, 0, 300, 0), "
        "(105, 1, 1, 0, 1, 20240105, 0, 0, 500, 0), (106, 1, 1, 0, 6, 20240108, 0, 0, 600, 1), "
        "(107, 1, 1, 0, 6, 20240201, 0, 0, 700, 0), (108, 1, 1, 1, 6, 20240105, 0, 0, 800, 0)",
        "INSERT INTO jyumei (denno, line, gcode, suu, tanka, total) VALUES (101, 1, 'G1', 2, 600000, 1200000), "
        "(101, 2, 'G2', 1, -150000, -150000), (101, 3, 'G9', 1, -99999, -99999), (103, 1, 'G1', 1, 1000, 1000), "
        "(104, 1, 'G2', 2, 150, 300), (106, 1, 'G1', 1, 600, 600)",
        QStringLiteral("INSERT INTO jyumei (denno, line, gcode, zgname, suu, tanka, total) VALUES (101, 105, "
                       "'pQ3r8t5w2yKm', '%1', 3, 0.5, 2.5)")
            .arg(freeName),
    });
    return rows;
}

} // namespace pel::test
