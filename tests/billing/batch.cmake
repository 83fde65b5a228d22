# pel008-batch settings and export-billing on a demo home: what only the runner does (exit codes, --yes and its
# absence, --json, the options passed on); the files and the checks themselves are the job tests' part.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/out)
include(${CMAKE_CURRENT_LIST_DIR}/../support/runner.cmake)

batch(0 demo --orders 80)
batch(1 settings --agency 929023 --company-code 1234 MATCHES "ＤＳＫの企業コードは５桁です")
batch(1 settings --agency 908997 --company-code 4321) # without --yes the first confirmation is answered No
batch(0 --yes settings --agency 908997 --company-code 4321)
batch(0 --json settings MATCHES "\"agency\":\"908997\"" "\"companyCode\":\"4321\"")

batch(0 --yes --json export-billing --dir ${WORK}/out --from-date 20991231 --to-date 20000101)
summary(count)
summary(marked)
if(count EQUAL 0 OR NOT marked EQUAL count OR NOT EXISTS ${WORK}/out/請求一括登録.txt)
  message(FATAL_ERROR "the export did not mark or write: ${out}")
endif()
# the orders exported before, and no marking question
batch(0 --yes --json export-billing --dir ${WORK}/out --from-date 20000101 --to-date 20991231 --reoutput --agency 929023)
set(first ${count})
summary(count)
if(count LESS first OR NOT EXISTS ${WORK}/out/コンビニ.csv OR err MATCHES "出力済みに更新")
  message(FATAL_ERROR "re-output: ${out}")
endif()
batch(2 export-billing --from-date 20000101 --to-date 20991231)
# a read that fails is said in the engine's words and ends with 1, never taken for no settings or no orders
batch(0 sql "ALTER TABLE cvsset RENAME TO cvsset9")
batch(1 settings MATCHES "データ参照エラーです。.*cvsset")
batch(1 --yes export-billing --dir ${WORK}/out --from-date 20000101 --to-date 20991231 MATCHES "データ参照エラーです。")
