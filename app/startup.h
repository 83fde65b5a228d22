#pragma once
// Start-up: the command line, the screen table and the quoted-field splitter of the importers.
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

namespace pel {

extern QStringList gstrArgs; // element 0 is the screen number
extern qint16 gintArgCnt;

// Splits the command line (program path not included) at single spaces into args; at most 11 arguments, a 12th
// token raises a subscript-out-of-range run-time error. Returns the number of arguments (0 when empty).
qint16 fnGetCommand(QStringList& args, const QString& commandLine);
// The process command line as the suite's menu hands it over: the arguments joined by single spaces.
QString processCommandLine(int argc, char** argv);

// Splits one line of an import file at sep outside double quotes, dropping the quotes. fields is 1-based:
// fields[0] is an unused empty placeholder and fields[k] is field k. Returns the number of fields, -1 for "".
qint16 fnSplitQuoted(const QString& line, QStringList& fields, const QString& sep);

// A screen the start-up can show: loaded (its load logic run) before it is made visible.
class Screen {
public:
    virtual ~Screen() = default;
    virtual void load() = 0;
    virtual void show() = 0;
    // False when the load decided the screen must not stay (the program then ends).
    virtual bool alive() const { return true; }
};
using ScreenFactory = std::function<std::unique_ptr<Screen>()>;

// Screens register themselves under their number ("1", "2", "5", "6", "7").
void registerScreen(const QString& number, ScreenFactory factory);
// The factory for argument 0 as the start-up compares it: exactly, in the order "1", "2", "5", "6", "7";
// null for anything else (and for a number whose screen is not built in).
ScreenFactory screenFor(const QString& arg0);

} // namespace pel
