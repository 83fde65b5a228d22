-- The tables of data1.dat, in the types a Jet database holds:
--   LONG (Long), SHORT (Integer), BYTE, TEXT(n) (n characters), LONGTEXT (Memo), CURRENCY, DOUBLE, SINGLE,
--   DATETIME, BIT (Yes/No).
-- The program creates the same tables on SQLite and on PostgreSQL from this one file. A row opened for editing is
-- found again by its table's primary key. Every column has a default
-- (or accepts null), so a row inserted with only the columns the screens write is valid. Column names that the
-- screens read unqualified from a join (code, name, total, sday, denno, ...) occur in one table of the join only;
-- memo occurs in both jyuden and member on purpose (it is read as "d.memo").

-- Order headers.
CREATE TABLE jyuden (
  denno    LONG NOT NULL PRIMARY KEY,   -- order number
  jday     LONG DEFAULT 0,              -- order date yyyymmdd
  mcode    LONG DEFAULT 0,              -- ordering customer (member.code)
  omcode   LONG DEFAULT 0,              -- delivery destination (member.code)
  denku    SHORT DEFAULT 0,             -- slip kind: 0 ordinary order
  pcode    SHORT DEFAULT 0,             -- payment method: 6 convenience-store collection
  sday     LONG DEFAULT 0,              -- ship date yyyymmdd
  hcode    SHORT DEFAULT 0,             -- label kind (bunrui kubun 3)
  chilled  SHORT DEFAULT 0,             -- cool class: 0 none, 1 chilled, 2 frozen
  gift     SHORT DEFAULT 0,             -- non-zero: gift (the orderer is the sender)
  haiday   LONG DEFAULT 0,              -- requested delivery date yyyymmdd, 0 none
  htime    SHORT DEFAULT 0,             -- requested time slot code 1..6, 0 none
  memo     TEXT(255) DEFAULT '',        -- note printed on the label
  kingaku  CURRENCY DEFAULT 0,          -- goods amount
  souryo   CURRENCY DEFAULT 0,          -- shipping charge
  tesuryo  CURRENCY DEFAULT 0,          -- collection charge
  utax     CURRENCY DEFAULT 0,          -- tax included in the amounts
  stax     CURRENCY DEFAULT 0,          -- tax charged separately
  total    CURRENCY DEFAULT 0,          -- order total
  cflag    SHORT DEFAULT 0,             -- 1: billing data exported
  oflag    SHORT DEFAULT 0,             -- 1: shipping label printed / exported
  nflag    SHORT DEFAULT 0,             -- 1: delivery note printed
  okurino  TEXT(20) DEFAULT '',         -- tracking number
  tcode    SHORT DEFAULT 0,             -- staff code
  udate    DATETIME                     -- last change
);
CREATE INDEX jyuden_sday ON jyuden (sday);
CREATE INDEX jyuden_mcode ON jyuden (mcode);

-- Order lines.
CREATE TABLE jyumei (
  denno    LONG NOT NULL,               -- order number
  line     SHORT NOT NULL,              -- line number
  gcode    TEXT(20) DEFAULT '',         -- goods code ("pQ3r8t5w2yKm": free item, name in zgname)
  zgname   TEXT(255) DEFAULT '',        -- free-text goods name
  suu      LONG DEFAULT 0,              -- quantity
  tanka    CURRENCY DEFAULT 0,          -- unit price
  total    CURRENCY DEFAULT 0,          -- line total
  genka    CURRENCY DEFAULT 0,          -- unit cost
  zkubun   SHORT DEFAULT 0,             -- tax class
  PRIMARY KEY (denno, line)
);

-- Customers and delivery destinations.
CREATE TABLE member (
  code     LONG NOT NULL PRIMARY KEY,   -- customer code
  name     TEXT(40) DEFAULT '',         -- name, family and given part separated by a space when known
  sname    TEXT(40) DEFAULT '',         -- short name
  kana     TEXT(60) DEFAULT '',         -- reading in half-width katakana
  zip      TEXT(8) DEFAULT '',          -- postcode "123-4567"
  adr1     TEXT(40) DEFAULT '',         -- prefecture
  adr2     TEXT(40) DEFAULT '',         -- city and district
  adr3     TEXT(40) DEFAULT '',         -- street and number
  adr4     TEXT(40) DEFAULT '',         -- building
  tel      TEXT(15) DEFAULT '',
  keitai   TEXT(15) DEFAULT '',         -- mobile telephone
  fax      TEXT(15) DEFAULT '',
  mail     TEXT(60) DEFAULT '',
  sex      SHORT DEFAULT 0,             -- 1 male, 2 female, 3 company
  birthday LONG DEFAULT 0,              -- yyyymmdd
  rday     LONG DEFAULT 0,              -- registration date yyyymmdd
  dmflag   SHORT DEFAULT 0,             -- 1: receives direct mail
  memo     LONGTEXT DEFAULT ''
);

-- Goods.
CREATE TABLE goods (
  code     TEXT(20) NOT NULL PRIMARY KEY,
  name     TEXT(60) DEFAULT '',
  kana     TEXT(60) DEFAULT '',
  tanka    CURRENCY DEFAULT 0,          -- selling price
  genka    CURRENCY DEFAULT 0,          -- cost
  zkubun   SHORT DEFAULT 0,             -- tax class
  zaiko    LONG DEFAULT 0,              -- stock
  stopflag SHORT DEFAULT 0              -- 1: discontinued
);

-- Payments received.
CREATE TABLE inmoney (
  denno    LONG DEFAULT 0,              -- order number
  nday     LONG DEFAULT 0,              -- payment date yyyymmdd
  pcode    SHORT DEFAULT 0,             -- payment kind: 6 convenience store
  money    CURRENCY DEFAULT 0,          -- amount paid
  inflag   SHORT DEFAULT 0,             -- 1: posted
  sdate    DATETIME,                    -- when it was posted
  bikou    TEXT(50) DEFAULT '',
  PRIMARY KEY (denno, nday)            -- one payment per order and day
);

-- Customer ledger: one line per customer, date, kind, order and line.
CREATE TABLE cdai (
  mcode    TEXT(10) DEFAULT '',         -- customer code, as text
  day      LONG DEFAULT 0,              -- date yyyymmdd
  kubun    SHORT DEFAULT 0,             -- 1 sale, 2 return, 3 payment
  denno    LONG DEFAULT 0,              -- order number
  line     SHORT DEFAULT 0,
  money    CURRENCY DEFAULT 0,
  zan      CURRENCY DEFAULT 0,          -- balance after the line
  bikou    TEXT(50) DEFAULT '',
  PRIMARY KEY (mcode, day, kubun, denno, line)
);
CREATE INDEX cdai_mcode ON cdai (mcode, day);

-- Classifications: kubun 3 = label kinds.
CREATE TABLE bunrui (
  kubun    SHORT NOT NULL,
  code     SHORT NOT NULL,
  name     TEXT(40) DEFAULT '',
  jun      SHORT DEFAULT 0,             -- display order, 0 none
  PRIMARY KEY (kubun, code)
);

-- The shop's one settings row (id 1).
CREATE TABLE sysfile (
  id       LONG NOT NULL PRIMARY KEY,
  name     TEXT(40) DEFAULT '',         -- shop name (sender of non-gift parcels)
  zip      TEXT(8) DEFAULT '',
  adr1     TEXT(40) DEFAULT '',
  adr2     TEXT(40) DEFAULT '',
  adr3     TEXT(40) DEFAULT '',
  adr4     TEXT(40) DEFAULT '',
  tel      TEXT(15) DEFAULT '',
  fax      TEXT(15) DEFAULT '',
  mail     TEXT(60) DEFAULT '',
  conveni  SHORT DEFAULT 0,             -- collection: 0 not used, 1 agency 908997, 2 agency 929023
  rnou     SHORT DEFAULT 0,             -- 1: label kinds listed by display order only
  zeiritu  DOUBLE DEFAULT 10,           -- tax rate in percent
  zeihasu  SHORT DEFAULT 0              -- tax rounding
);

-- Collection agency settings (code 1).
CREATE TABLE cvsset (
  code     LONG NOT NULL PRIMARY KEY,
  cfcode1  TEXT(6) DEFAULT '',          -- agency code, right-aligned to 6
  ckcode1  TEXT(10) DEFAULT '',         -- company code at the agency
  cvkbn    SHORT DEFAULT 0,
  cfcode2  TEXT(6) DEFAULT '',
  ckcode2  TEXT(10) DEFAULT ''
);

-- Record layouts of the agencies' payment-result files: kubun 0 fixed-width, 1 comma-separated.
-- Position columns hold start.length (12.05 = start 12, length 5); c-columns hold field numbers.
CREATE TABLE cvsini (
  code     TEXT(6) NOT NULL,
  kubun    SHORT NOT NULL,
  name     TEXT(40) DEFAULT '',
  sokuk    DOUBLE DEFAULT 0,
  sokum    DOUBLE DEFAULT 0,
  kakuk    DOUBLE DEFAULT 0,
  kakum    DOUBLE DEFAULT 0,
  torik    DOUBLE DEFAULT 0,
  torim    DOUBLE DEFAULT 0,
  fcd      DOUBLE DEFAULT 0,
  scd      DOUBLE DEFAULT 0,
  dno1     DOUBLE DEFAULT 0,
  dno2     DOUBLE DEFAULT 0,
  bun      DOUBLE DEFAULT 0,
  idno     DOUBLE DEFAULT 0,
  money    DOUBLE DEFAULT 0,
  nen      DOUBLE DEFAULT 0,
  tuki     DOUBLE DEFAULT 0,
  hi       DOUBLE DEFAULT 0,
  syschk   DOUBLE DEFAULT 0,
  cvscode  DOUBLE DEFAULT 0,
  cvstenpo DOUBLE DEFAULT 0,
  ji       DOUBLE DEFAULT 0,
  hun      DOUBLE DEFAULT 0,
  sikbn    SHORT DEFAULT 0,
  sinen    DOUBLE DEFAULT 0,
  situki   DOUBLE DEFAULT 0,
  sihi     DOUBLE DEFAULT 0,
  cfcd     SHORT DEFAULT 0,
  cscd     SHORT DEFAULT 0,
  cdno1    SHORT DEFAULT 0,
  cdno2    SHORT DEFAULT 0,
  cbun     SHORT DEFAULT 0,
  cidno    SHORT DEFAULT 0,
  cmoney   SHORT DEFAULT 0,
  cnen     SHORT DEFAULT 0,
  ctuki    SHORT DEFAULT 0,
  chi      SHORT DEFAULT 0,
  csyschk  SHORT DEFAULT 0,
  ccvscode SHORT DEFAULT 0,
  ccvstenpo SHORT DEFAULT 0,
  cji      SHORT DEFAULT 0,
  chun     SHORT DEFAULT 0,
  csinen   SHORT DEFAULT 0,
  csituki  SHORT DEFAULT 0,
  csihi    SHORT DEFAULT 0,
  eanflag  DOUBLE DEFAULT 0,
  eancsv   SHORT DEFAULT 0,
  PRIMARY KEY (code, kubun)
);

-- Audit trail; rows are inserted without column names, so the order of the columns is part of the table. Only
-- ever added to: it has no key, and its rows cannot be changed through a recordset.
CREATE TABLE operatlog (
  pcname   TEXT(40) DEFAULT '',         -- workstation
  username TEXT(40) DEFAULT '',         -- logon name
  syori    TEXT(80) DEFAULT '',         -- the screen's caption
  kubun    SHORT DEFAULT 0,             -- 0 opened, 9 closed, others: the screen's actions
  jikan    DATETIME,                    -- when
  naiyou   TEXT(50) DEFAULT ''          -- note
);

-- Print position offsets of the printed forms.
CREATE TABLE offset (
  kubun    SHORT NOT NULL,              -- form kind
  code     SHORT NOT NULL,              -- form code
  top      SINGLE DEFAULT 0,
  left     SINGLE DEFAULT 0,
  hight    SINGLE DEFAULT 0,
  PRIMARY KEY (kubun, code)
);
