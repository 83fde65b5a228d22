#pragma once
// Collection settings: whether orders are collected through a convenience-store agency, which agency, and the
// shop's company code there (sysfile.conveni, cvsset row 1). Read and saved the same way by frmSetCvs2 and the
// runner.
#include "app/db/dbclass.h"
#include "app/interaction.h"

#include <QList>
#include <QString>
#include <optional>

namespace pel
{

// The two agencies the program knows, in the order of the screens' lists.
struct Agency {
    QString code; // "908997"
    QString name;
    QString itemText() const { return QLatin1Char('[') + code + QLatin1Char(']') + name; }
};
const QList<Agency>& agencies();
// List index of an agency code; -1 for any other.
int agencyIndex(const QString& code);

class SettingsJob
{
public:
    static inline const QString kCaption = QStringLiteral("コンビニ収納代行設定");
    static constexpr int kAttempts = 11; // immediate save attempts per table

    explicit SettingsJob(clsDbClass& db) : db_(db) {}

    // The opening checks: the shop's sysfile row and the kind-0 layouts of both agencies. Nullopt when one is
    // missing or could not be read (the program ends); else whether collection is used (conveni not 0).
    std::optional<bool> opening();
    // The engine's text when the opening ended on a read that failed; "" when a row was only missing.
    const QString& openingError() const { return openingError_; }

    // What the screen shows after a load: the agency index (nullopt keeps the current selection) and the code;
    // error: the engine's text of a read that failed (nothing to show then: a failed read is not "no settings").
    struct Loaded {
        std::optional<int> index;
        QString code;
        QString error;
    };
    Loaded load();

    // The stored values as they are: sysfile.conveni, cvsset.cfcode1 and ckcode1 ("" where there is no row);
    // error: the engine's text of a read that failed.
    struct Stored {
        QString conveni;
        QString agency;
        QString code;
        QString error;
    };
    Stored stored();

    enum class Saved {
        Yes,
        CodeRefused, // empty or of the wrong length: the company code box takes the focus
        Declined,    // a question answered No
        Failed,      // the retries ran out: rolled back, "記録エラー"
    };
    // used: the check box; agencyCode: the selected item's code ("" when nothing is selected); code: as typed.
    Saved save(bool used, const QString& agencyCode, const QString& code, Interaction& ui);
    // Attempts of the last save per table (sysfile, cvsset); 0 when the table was not written.
    int sysfileAttempts() const { return sysfileAttempts_; }
    int cvssetAttempts() const { return cvssetAttempts_; }

private:
    QString openingError_;
    // One table's edit with the silent retries; false when they ran out. A row that cannot be opened is skipped.
    bool editWithRetries(const Sql& select, const std::function<bool(Recordset&)>& fill, int* attempts);

    clsDbClass& db_;
    int sysfileAttempts_ = 0;
    int cvssetAttempts_ = 0;
};

} // namespace pel
