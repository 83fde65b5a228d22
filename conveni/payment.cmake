# Payment import (screen 5): record layouts, the import job and its posting in the core; the screen and its report
# in the GUI library.
set(_payment ${CMAKE_CURRENT_LIST_DIR})
target_sources(pel008_core PRIVATE
  ${_payment}/layouts.cpp ${_payment}/layouts.h ${_payment}/layoutload.cpp
  ${_payment}/mtfile.cpp ${_payment}/mtfile.h
  ${_payment}/mtrecord.cpp ${_payment}/mtrecord.h
  ${_payment}/posting.cpp ${_payment}/posting.h
  ${_payment}/importjob.cpp ${_payment}/importjob.h)
target_sources(pel008_core PRIVATE ${_payment}/reportdata.cpp ${_payment}/reportdata.h)
target_sources(pel008_gui PRIVATE
  ${_payment}/frmreadcvsmt.cpp ${_payment}/frmreadcvsmt.h
  ${_payment}/rptcvsmtprint.cpp ${_payment}/rptcvsmtprint.h)
