# Payment import (screen 5): record layouts, the import job and its posting in the core; the screen and its report
# in the GUI library.
set(_payment ${CMAKE_CURRENT_LIST_DIR})
target_sources(pel008_core PRIVATE
  ${_payment}/layouts.cpp ${_payment}/layouts.h
  ${_payment}/mtfile.cpp ${_payment}/mtfile.h
  ${_payment}/posting.cpp ${_payment}/posting.h
  ${_payment}/importjob.cpp ${_payment}/importjob.h)
