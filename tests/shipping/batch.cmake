# pel008-batch export-shipping and import-tracking on a demo home: what only the runner does (what it refuses and its
# exit codes, the answers --yes gives, the counts --json reports, --reoutput and --append passed on); the lines and
# the stored numbers are the job tests' part.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/out)
include(${CMAKE_CURRENT_LIST_DIR}/../support/runner.cmake)

batch(0 demo --orders 400)
set(range --from-date 20000101 --to-date 20991231)
set(refused ${WORK}/out/refused.csv)
batch(2 export-shipping --file ${refused})
batch(2 export-shipping --file ${refused} --kind 5) # a kind I-CAT does not print
batch(2 export-shipping --file ${refused} --kind 9 --from-date 2025-01-01)
batch(2 export-shipping --file ${refused} --kind 9 --to-no 123456789)
batch(2 import-tracking ${refused})
# without --yes the count is answered No
batch(1 export-shipping --file ${refused} --kind 9 ${range} MATCHES "^該当件数は")
batch(1 import-tracking ${WORK}/none.csv --errlog ${WORK}/out/e.txt MATCHES "^ファイルオープンに失敗しました！")
if(EXISTS ${refused})
  message(FATAL_ERROR "a refused export wrote its file")
endif()

set(export --yes --json export-shipping --file ${WORK}/out/icat.csv --kind 9 ${range})
batch(0 ${export} MATCHES "印刷した受注伝票を送り状印刷済みに更新しますか？")
summary(count)
summary(written)
summary(marked)
if(count LESS 11 OR NOT written EQUAL count OR NOT marked EQUAL count)
  message(FATAL_ERROR "export: ${out}")
endif()
set(first ${count})

# the demo's carrier file: orders of the shop and one it does not have
batch(0 --json import-tracking ${WORK}/home/samples/icat_result.csv --errlog ${WORK}/out/err.txt)
summary(lines)
summary(updated)
summary(rejected)
math(EXPR found "${lines} - 1")
if(NOT updated EQUAL found OR NOT rejected EQUAL 1 OR NOT err STREQUAL "エラーデータがあります。確認して下さい\n")
  message(FATAL_ERROR "import: ${out}\n${err}")
endif()

# again, reprinting every label-printed order of the kind, appended to the same file
batch(0 ${export} --reoutput --append MATCHES "はい:上書 いいえ:追加")
summary(written)
file(READ ${WORK}/out/icat.csv kept)
string(REGEX MATCHALL "\n" ends "${kept}")
list(LENGTH ends total)
math(EXPR expected "${first} + ${written}")
if(NOT written GREATER first OR NOT total EQUAL expected)
  message(FATAL_ERROR "reprint appended ${total} lines, expected ${expected}: ${out}")
endif()
