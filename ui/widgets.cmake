# The screen framework: message boxes, function-key toolbar, key rules, date entry and the screen base.
target_sources(pel008_gui PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/uifont.cpp ${CMAKE_CURRENT_LIST_DIR}/uifont.h
  ${CMAKE_CURRENT_LIST_DIR}/qtdialogs.cpp ${CMAKE_CURRENT_LIST_DIR}/qtdialogs.h
  ${CMAKE_CURRENT_LIST_DIR}/functionbar.cpp ${CMAKE_CURRENT_LIST_DIR}/functionbar.h
  ${CMAKE_CURRENT_LIST_DIR}/keys.cpp ${CMAKE_CURRENT_LIST_DIR}/keys.h
  ${CMAKE_CURRENT_LIST_DIR}/dateentry.cpp ${CMAKE_CURRENT_LIST_DIR}/dateentry.h
  ${CMAKE_CURRENT_LIST_DIR}/form.cpp ${CMAKE_CURRENT_LIST_DIR}/form.h
  ${CMAKE_CURRENT_LIST_DIR}/forminteraction.cpp ${CMAKE_CURRENT_LIST_DIR}/forminteraction.h
  ${CMAKE_CURRENT_LIST_DIR}/formscreen.h
)
