#pragma once
// The program folder: where mirabo.ini and data1.dat live.
#include <QString>

namespace pel {

// PEL008_HOME when set, else the folder of the running executable.
QString programFolder();
// Full path of a file in the program folder.
QString programFile(const QString& name);
// The settings file, built anew at each call.
QString iniPath();
// Path as the system writes it: folder + separator + name, with the platform's separator.
QString joinPath(const QString& folder, const QString& name);

} // namespace pel
