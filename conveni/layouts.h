#pragma once
// Record layouts of the agencies' payment-result files, one row of cvsini per agency and kind (0 fixed width,
// 1 comma-separated), loaded into the layout globals before a file is read.
#include <QString>
#include <QStringList>

namespace pel {

// One item of a record: 1-based start character and length. Start 0: the layout does not have the item.
struct LayoutPos {
    qint16 start = 0;
    qint16 length = 0;
    bool has() const { return start != 0; }
    bool operator==(const LayoutPos&) const = default;
};

struct CvsLayout {
    // positions (start.length)
    LayoutPos sokuk, sokum, kakuk, kakum, torik, torim;
    LayoutPos fcd, scd, dno1, dno2, bun, idno, money, nen, tuki, hi, syschk, cvscode, cvstenpo, ji, hun;
    LayoutPos sinen, situki, sihi, eanflag;
    // field numbers of the comma-separated layout
    qint16 sikbn = 0;
    qint16 cfcd = 0, cscd = 0, cdno1 = 0, cdno2 = 0, cbun = 0, cidno = 0, cmoney = 0, cnen = 0, ctuki = 0, chi = 0;
    qint16 csyschk = 0, ccvscode = 0, ccvstenpo = 0, cji = 0, chun = 0, csinen = 0, csituki = 0, csihi = 0;
    qint16 eancsv = 0;
    bool operator==(const CvsLayout&) const = default;
};

// The layout of the last successful load; a failed load leaves it as it was.
extern CvsLayout gCvsLayout;

// Loads the row of agency code and kind into gCvsLayout; false when there is none, or (with the message to show in
// *error) when it cannot be read or a value does not fit its place.
bool fnLoadCvsIni(const QString& code, qint16 kubun, QString* error = nullptr);

// A layout value as a number: digits and the first '.', nothing else; empty is 0.
double fnLayoutValue(const QString& text);
// start.length: start = whole part, length = the two fractional digits (hundredths, rounded half to even).
// False when the value does not fit the 16-bit places.
bool fnSplitPos(double value, LayoutPos* pos);
// A field number, rounded half to even; false when it does not fit.
bool fnFieldNo(double value, qint16* number);

// The item at pos of a text ("" when the layout has no such item or the text is shorter).
QString fnItem(const QString& text, LayoutPos pos);

} // namespace pel
