#!/usr/bin/env bash
# usage: bench.sh PEL008_BATCH [ORDERS [DEMO_HOME]]   prints the time of both and their ratio (goal: at most 2x)
# DEMO_HOME: a home made before with `pel008-batch demo --orders ORDERS`, copied instead of making one
set -uo pipefail
batch=${1:?pel008-batch}
orders=${2:-100000}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
command -v sqlite3 >/dev/null || { echo "bench-billing: sqlite3 not installed (scripts/setup)"; exit 0; }

if [ -n "${3:-}" ]; then
  cp -r "$3" "$work/home" || exit 0
else
  "$batch" --home "$work/home" demo --orders "$orders" >/dev/null 2>&1 || { echo "bench-billing: demo failed"; exit 0; }
fi
db=$work/home/data1.dat
# a copy in which every order is a shipped convenience-store order already exported (re-output: no marking)
sqlite3 "$db" "UPDATE jyuden SET pcode = 6, denku = 0, cflag = 1; UPDATE cvsset SET cfcode1 = '908997', ckcode1 = '1234';"
mkdir -p "$work/out" "$work/cli"

cat >"$work/customers.sql" <<'SQL'
select d.denno, m.name, m.kana, '0', replace(m.zip, '-', ''), m.adr1, substr(m.adr2 || m.adr3 || m.adr4, 1, 20),
       substr(m.adr2 || m.adr3 || m.adr4, 21, 20), case when m.tel <> '' then m.tel else m.keitai end,
       case when m.code = o.code then '0' else '1' end, o.name, '0', replace(o.zip, '-', ''), o.adr1,
       substr(o.adr2 || o.adr3 || o.adr4, 1, 20), substr(o.adr2 || o.adr3 || o.adr4, 21, 20)
  from jyuden d, member m, member o
 where d.mcode = m.code and d.omcode = o.code and d.denno between 1 and 99999999 and d.denku = 0 and d.cflag = 1
   and d.sday between 19000101 and 29991231 and d.pcode = 6
 order by d.sday, d.denno;
SQL
cat >"$work/billing.sql" <<'SQL'
select denno, '1234', no, total, utax, sday, gcode, gname, suu, amount, linetotal from (
select d.sday, d.denno, l.line as k, substr('0' || l.line, -2) as no, d.total, d.utax, d.sday as sd,
       case when l.gcode = 'pQ3r8t5w2yKm' then '' else l.gcode end as gcode,
       case when l.gcode = 'pQ3r8t5w2yKm' then l.zgname else coalesce(g.name, '') end as gname,
       l.suu, round(l.suu * l.tanka) as amount, round(l.total) as linetotal
  from jyuden d join member m on d.mcode = m.code join member o on d.omcode = o.code
  join jyumei l on l.denno = d.denno left join goods g on g.code = l.gcode
 where d.denno between 1 and 99999999 and d.denku = 0 and d.cflag = 1 and d.sday between 19000101 and 29991231
   and d.pcode = 6
union all
select d.sday, d.denno, 1000, substr('0' || (coalesce((select max(line) from jyumei x where x.denno = d.denno), 0) + 1), -2),
       d.total, 0, d.sday, '', '消費税', 1, d.stax, d.stax
  from jyuden d join member m on d.mcode = m.code join member o on d.omcode = o.code
 where d.denno between 1 and 99999999 and d.denku = 0 and d.cflag = 1 and d.sday between 19000101 and 29991231
   and d.pcode = 6 and d.stax <> 0)
 order by sday, denno, k;
SQL
ours() {
  "$batch" --home "$work/home" --yes export-billing --dir "$work/out" --agency 908997 --from-date 19000101 \
    --to-date 29991231 --reoutput
}
cli() {
  sqlite3 -csv "$db" <"$work/customers.sql" >"$work/cli/customers.csv" &&
    sqlite3 -csv "$db" <"$work/billing.sql" >"$work/cli/billing.csv"
}
# elapsed and processor seconds of one run
measure() {
  local TIMEFORMAT='%R %U %S'
  { time "$@" >/dev/null 2>&1; } 2>&1 | awk '{ print $1, $2 + $3 }'
}
# Both sides three times, alternating; the best time of each side is compared, so that another program's burst on
# a shared machine does not decide the ratio.
best() { awk -v a="$1" -v b="$2" 'BEGIN { print (a == "" || b < a) ? b : a }'; }
ow= oc= cw= cc=
for run in 1 2 3; do
  read -r w c < <(measure ours); ow=$(best "$ow" "$w"); oc=$(best "$oc" "$c")
  read -r w c < <(measure cli); cw=$(best "$cw" "$w"); cc=$(best "$cc" "$c")
done

lines=$(cat "$work/out/請求一括登録.txt" 2>/dev/null | wc -l)
cli_lines=$(wc -l <"$work/cli/billing.csv")
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }'; }
printf 'bench-billing: %d orders, %d billing lines (sqlite3: %d), best of 3\n' "$orders" "$lines" "$cli_lines"
printf '  pel008-batch export-billing  %8.3f s  (processor %.3f s)\n' "$ow" "$oc"
printf '  sqlite3 -csv (same rows)     %8.3f s  (processor %.3f s)\n' "$cw" "$cc"
printf '  ratio                        %8sx (goal: at most 2x; processor time %sx)\n' "$(ratio "$ow" "$cw")" "$(ratio "$oc" "$cc")"
exit 0
