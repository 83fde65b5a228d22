#pragma once
// A statement as the system builds it by concatenation, with its values kept apart so that they are bound, never
// pasted. text() is the statement as the system would have written it (shown in messages); the database layer
// binds the values and refuses a value that would have broken the concatenated statement.
#include <QString>
#include <QVariant>
#include <cstddef>
#include <vector>

namespace pel {

// A piece of statement text. Only a string literal of the source makes one: the constructor runs when compiling,
// so a runtime array (a value read at run time) does not compile.
class SqlText {
public:
    template <std::size_t N>
    consteval SqlText(const char (&text)[N]) : text_(text), size_(N - 1) // NOLINT
    {
        if (text[N - 1] != '\0') // reading it also refuses an array that can change
            throw "a statement fragment is a string literal";
    }
    const char* data() const { return text_; }
    std::size_t size() const { return size_; }

private:
    const char* text_;
    std::size_t size_;
};

class Sql {
public:
    enum class Kind { Fragment, Quoted, Number };
    struct Part {
        Kind kind;
        QString text;
    };

    Sql() = default;
    // Statement text is only ever a string literal of the source: a value can never become part of it by mistake.
    Sql(SqlText fragment) // NOLINT
        : Sql(QString::fromUtf8(fragment.data(), static_cast<qsizetype>(fragment.size())), Raw{})
    {
    }
    // The one way in for a statement typed by a person as a whole (the runner's sql command, tests); grep for it.
    static Sql raw(const QString& statement) { return Sql(statement, Raw{}); }

    // A text value the system puts between single quotes: q("908997") reads as '908997'.
    static Sql q(const QString& value);
    // A value the system pastes unquoted as a number: its text exactly as the system would paste it.
    static Sql n(const QString& value);
    static Sql n(qint64 value);
    static Sql n(int value) { return n(static_cast<qint64>(value)); }

    Sql& operator+=(const Sql& other);
    friend Sql operator+(Sql a, const Sql& b) { return a += b; }
    friend Sql operator+(Sql a, SqlText b) { return a += Sql(b); }

    // The statement as the system's concatenation gives it.
    QString text() const;
    bool isEmpty() const { return parts_.empty(); }
    const std::vector<Part>& parts() const { return parts_; }

private:
    struct Raw {};
    Sql(const QString& fragment, Raw);
    std::vector<Part> parts_;
};

// The statement with '?' in place of each value, and the values to bind; or the engine's error when a value
// would have broken the concatenated statement (a quote inside a text value, a number that is not a number).
struct BoundSql {
    QString text;
    QVariantList values;
    QString error;
    bool ok() const { return error.isEmpty(); }
};
BoundSql bind(const Sql& sql);

} // namespace pel
