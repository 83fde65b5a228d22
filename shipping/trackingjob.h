#pragma once
// The carrier's result file: the shipping lines as I-CAT gives them back, the tracking number added as field 47.
// Each number is stored on its order (jyuden.okurino); lines whose order is not found go to the error log.
#include "app/db/dbclass.h"
#include "app/interaction.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace pel {

class TrackingImportJob
{
public:
    static inline const QString kCaption = QStringLiteral("Ｉ-ＣＡＴデータ読込");
    static constexpr int kTrackingField = 47;

    enum class Outcome {
        InputError, // the result file cannot be opened ("ファイルエラー")
        LogError,   // the error log cannot be created ("ファイルエラー"), is the result file itself, or could not be written
        Stopped,    // F6 confirmed
        ReadFailed, // an order could not be looked up: the engine's text shown, the rest of the file not read
        SaveFailed, // a tracking number could not be saved ("記録エラー"), the rest of the file not read
        Done,       // the closing message was shown
    };
    struct Result {
        Outcome outcome = Outcome::Done;
        qint64 lines = 0;       // lines read
        qint64 updated = 0;     // orders whose tracking number was stored
        qint64 rejected = 0;    // lines written to the error log
        qint64 undecodable = 0; // lines whose field 2 or 47 is not CP932 text (also in the error log)
    };

    // What a line leaves for the next: a field the line lacks (or cannot be read as its type) keeps the value of
    // the line before; before the first line, order 0 and no tracking number.
    struct Values {
        qint32 denno = 0;
        QString tracking;
    };
    // Reads the order number (field 2) and the tracking number (field 47) of one line, without its line end, from
    // its bytes: the other fields may be in any encoding. False when either of the two is not CP932 text (values
    // unchanged).
    static bool readLine(const QByteArray& raw, Values& values);
    // The order number as the field converts to a 32-bit integer; nullopt when it does not.
    static std::optional<qint32> toLong(const QString& field);

    explicit TrackingImportJob(clsDbClass& db) : db_(db) {}
    Result run(const QString& input, const QString& errorLog, Interaction& ui);

private:
    clsDbClass& db_;
};

} // namespace pel
