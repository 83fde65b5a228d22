// libFuzzer target: any bytes as a carrier result file, read line by line as the import reads it.
#include "shipping/trackingjob.h"

#include <QByteArray>
#include <QList>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    pel::TrackingImportJob::Values values;
    for (QByteArray line : bytes.split('\n')) {
        if (line.endsWith('\r'))
            line.chop(1);
        pel::TrackingImportJob::readLine(line, values);
    }
    return 0;
}
