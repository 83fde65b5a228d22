#pragma once
// The small fixed database of the billing tests: four convenience-store orders of January 2024 (101-104) and
// four that the selection leaves out (another payment, already exported, another month, another slip kind).
#include "tests/support/testhome.h"

#include <QString>
#include <QStringList>

namespace pel::test
{

inline bool fillBillingDatabase(TestHome& home)
{
    const QString a19 = QStringLiteral("a") + QString(19, QChar(0x3042));
    const QString a20(20, QChar(0x3042)), a11(11, QChar(0x3042));
    const QString freeName = QStringLiteral("a") + QString(100, QChar(0x3042)); // 201 bytes
    return home.exec({
        QStringLiteral("INSERT INTO sysfile (id, name, conveni) VALUES (1, 'shop', 1)"),
        QStringLiteral("INSERT INTO cvsini (code, kubun) VALUES ('908997', 0)"),
        QStringLiteral("INSERT INTO cvsini (code, kubun) VALUES ('929023', 0)"),
        QStringLiteral("INSERT INTO cvsset (code, cfcode1, ckcode1, cvkbn) VALUES (1, '908997', '1234', 1)"),
        QStringLiteral("INSERT INTO member (code, name, sname, kana, zip, adr1, adr2, adr3, adr4, tel, keitai) VALUES "
                       "(1, '山田 太郎', '山田', 'ﾔﾏﾀﾞ ﾀﾛｳ', '100-0001', '東京都', '千代田区千代田', '１－１', '', "
                       "'03-1111-2222', '090-0000-0001')"),
        QStringLiteral("INSERT INTO member (code, name, sname, kana, zip, adr1, adr2, tel, keitai) VALUES "
                       "(2, '佐藤花子', '佐藤', 'ｻﾄｳ ﾊﾅｺ', '530-0001', '大阪府', '大阪市北区梅田', '', "
                       "'080-1234-5678')"),
        QStringLiteral("INSERT INTO member (code, name, sname, kana, zip, adr1, adr2, adr3, adr4, tel) VALUES "
                       "(3, '株式会社 みどり', '株式会社 みどり', 'ｶﾌﾞｼｷｶﾞｲｼｬ ﾐﾄﾞﾘ', '060-0001', '北海道', '%1', '%2', "
                       "'%3', '011-222-3333')")
            .arg(a19, a20, a11),
        QStringLiteral("INSERT INTO member (code, name, sname, kana, zip, adr1, adr2, tel, keitai) VALUES "
                       "(4, '\U00020BB7田 一郎', '\U00020BB7田', 'ﾖｼﾀﾞ ｲﾁﾛｳ', '9000001', '沖縄県', '那覇市', '  ', "
                       "'090-4444-4444')"),
        QStringLiteral("INSERT INTO goods (code, name) VALUES ('G1', 'りんご')"),
        QStringLiteral("INSERT INTO goods (code, name) VALUES ('G2', 'みかん')"),
        QStringLiteral("INSERT INTO jyuden (denno, mcode, omcode, denku, pcode, sday, utax, stax, total, cflag) VALUES "
                       "(101, 1, 1, 0, 6, 20240105, 100, 0, 1050001, 0)"),
        QStringLiteral("INSERT INTO jyuden (denno, mcode, omcode, denku, pcode, sday, utax, stax, total, cflag) VALUES "
                       "(102, 2, 3, 0, 6, 20240106, 0, 80, 880, 0)"),
        QStringLiteral("INSERT INTO jyuden (denno, mcode, omcode, denku, pcode, sday, utax, stax, total, cflag) VALUES "
                       "(103, 3, 3, 0, 6, 20240106, 0, 100, 1100, 0)"),
        QStringLiteral("INSERT INTO jyuden (denno, mcode, omcode, denku, pcode, sday, utax, stax, total, cflag) VALUES "
                       "(104, 4, 4, 0, 6, 20240107, 27, 0, 300, 0)"),
        QStringLiteral("INSERT INTO jyuden (denno, mcode, omcode, denku, pcode, sday, total, cflag) VALUES "
                       "(105, 1, 1, 0, 1, 20240105, 500, 0)"),
        QStringLiteral("INSERT INTO jyuden (denno, mcode, omcode, denku, pcode, sday, total, cflag) VALUES "
                       "(106, 1, 1, 0, 6, 20240108, 600, 1)"),
        QStringLiteral("INSERT INTO jyuden (denno, mcode, omcode, denku, pcode, sday, total, cflag) VALUES "
                       "(107, 1, 1, 0, 6, 20240201, 700, 0)"),
        QStringLiteral("INSERT INTO jyuden (denno, mcode, omcode, denku, pcode, sday, total, cflag) VALUES "
                       "(108, 1, 1, 1, 6, 20240105, 800, 0)"),
        QStringLiteral("INSERT INTO jyumei (denno, line, gcode, suu, tanka, total) VALUES (101, 1, 'G1', 2, 600000, "
                       "1200000)"),
        QStringLiteral("INSERT INTO jyumei (denno, line, gcode, suu, tanka, total) VALUES (101, 2, 'G2', 1, -150000, "
                       "-150000)"),
        QStringLiteral("INSERT INTO jyumei (denno, line, gcode, suu, tanka, total) VALUES (101, 3, 'G9', 1, -99999, "
                       "-99999)"),
        QStringLiteral("INSERT INTO jyumei (denno, line, gcode, zgname, suu, tanka, total) VALUES (101, 105, "
                       "'pQ3r8t5w2yKm', '%1', 3, 0.5, 2.5)")
            .arg(freeName),
        QStringLiteral("INSERT INTO jyumei (denno, line, gcode, suu, tanka, total) VALUES (103, 1, 'G1', 1, 1000, "
                       "1000)"),
        QStringLiteral("INSERT INTO jyumei (denno, line, gcode, suu, tanka, total) VALUES (104, 1, 'G2', 2, 150, 300)"),
        QStringLiteral("INSERT INTO jyumei (denno, line, gcode, suu, tanka, total) VALUES (106, 1, 'G1', 1, 600, 600)"),
    });
}

} // namespace pel::test
