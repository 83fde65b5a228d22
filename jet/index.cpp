// Index B-trees: seeks on the first column of a real index.
#include "jet/bytes.h"
#include "jet/jet.h"

namespace jet {

int Database::seekableIndex(const Table&, int) const { return -1; }

Status Database::indexSeek(const Table&, int, const KeyBound&, const KeyBound&, std::vector<RowId>& out,
                           bool* usable) const
{
    out.clear();
    *usable = false;
    return OK;
}

} // namespace jet
