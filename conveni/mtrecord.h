#pragma once
// What the payment import reads from an agency's file, without the database: the format and agency of a file,
// the sums of a fixed-width line for the trailer check, and the items of one data record.
#include "conveni/layouts.h"
#include "conveni/mtfile.h"

#include <QString>

namespace pel {

struct MtDetection {
    enum Kind {
        Found, // comma and agency set
        Empty, // no line at all
        Head,  // a single line beginning "HEAD": the agency's own format, not the standard one
        Error, // a line that cannot be decoded: message() of the file
    };
    Kind kind = Found;
    qint16 comma = 0;
    QString agency;
};

// Reads the first lines of an open file: comma-separated when the first line holds a ",", else the agency named by
// the first data record; an agency named by no record is the previous one.
MtDetection detectMt(MtFile& file, const QString& previousAgency);

// One line of a fixed-width file in the first pass.
struct MtSumLine {
    enum Kind { Other, Paid, Cancel, Trailer } kind = Other;
    double amount = 0; // Paid, Cancel: the amount item
    // Trailer: 速報 (with the postal extras once a postal record was met) and 取消
    double sokuk = 0, sokum = 0, torik = 0, torim = 0; // the counts whole (rounded half away from zero)
};
// postal: set by a "12"/"22" line, read by the trailers after it.
MtSumLine readSumLine(const QString& line, const CvsLayout& layout, bool* postal);

// One line of the second pass, in either format.
struct MtRecord {
    enum Kind {
        Skip,        // not a data record of a code the import handles
        AgencyError, // the record names another agency
        Bad,         // an item cannot be read (a missing field, a number beyond 32 bits)
        Data,
    };
    Kind kind = Skip;
    QString code;
    // read so far (a Bad record keeps what was read before the fault)
    qint32 nday = 0, amount = 0, denno = 0;
    double agencyErrorAmount = 0; // the amount item cut from the whole line
};
// dateKind 0: the date of the record (収納日); 1: screenDate for the fixed-width format, 0 for the comma-separated.
MtRecord readRecord(const QString& line, qint16 comma, const CvsLayout& layout, const QString& agency, int dateKind,
                    qint32 screenDate);

// Whether a code is one of a payment ("01", "12", "22").
bool isPaidCode(const QString& code);

} // namespace pel
