#pragma once
// A demo program folder: data1.dat with realistic orders, mirabo.ini, and agency and carrier sample files.
#include <QString>
#include <QStringList>

namespace pel::demo {

struct Options {
    int orders = 300;
    quint64 seed = 1;
    QString dbserver; // a PostgreSQL database (libpq key=value form) instead of data1.dat; its tables must not exist
};

struct Summary {
    int orders = 0;
    int lines = 0;
    int members = 0;
    QStringList files; // sample files written, relative to the home
};

// Fills home (which must not hold a data1.dat yet). False with a message on failure.
bool makeDemoHome(const QString& home, const Options& options, Summary* summary, QString* error);

} // namespace pel::demo
