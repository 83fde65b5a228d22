#include "jet/sqlite_attach.h"
