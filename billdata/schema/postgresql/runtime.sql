-- The functions that translated statements call on the server: each gives the result (and the
-- error) that the embedded engine's runtime gives for the same T-SQL. Most are single-expression
-- SQL functions, so that the planner writes them into the statement that calls them; those that
-- raise an error are STABLE, so that an error branch the data never takes is not evaluated early.
-- Runs before the tables script on a new database, and again on an existing one to bring its
-- functions up to date: every statement here can run twice.

-- Texts compare as the server dialect compares them: without regard to case (the collation
-- bd_ci, which the tables script declares its text columns with too) and to trailing blanks
-- (bpchar). A translated statement casts a text it compares that is no such column to bd_text;
-- as a type (not a COLLATE clause) the cast also lets a grouped text expression be used inside
-- other expressions.
CREATE COLLATION IF NOT EXISTS bd_ci (provider = icu, locale = 'und-u-ks-level2', deterministic = false);
DO $$
BEGIN
    CREATE DOMAIN bd_text AS bpchar COLLATE bd_ci;
EXCEPTION WHEN duplicate_object THEN
    NULL;
END
$$;

-- Text arguments may come with the columns' case-insensitive collation, which regular
-- expressions and substring searches refuse: those work under the default collation.

-- Raises `message` as a function's result of the type of `sample`.
CREATE OR REPLACE FUNCTION bd_fail(message text, sample anyelement) RETURNS anyelement
LANGUAGE plpgsql STABLE AS $$
BEGIN
    RAISE EXCEPTION USING MESSAGE = message, ERRCODE = '22000';
END
$$;

-- Raises the server dialect's error `number` with its message: the state is 'B' and the number
-- in four digits, which the driver gives the caller as the error's native number.
CREATE OR REPLACE FUNCTION bd_fail(number int, message text, sample anyelement) RETURNS anyelement
LANGUAGE plpgsql STABLE AS $$
BEGIN
    RAISE EXCEPTION USING MESSAGE = message, ERRCODE = 'B' || lpad(number::text, 4, '0');
END
$$;

-- A whole number within the range of the type named ('int', 'smallint', 'tinyint'): parameters
-- are bigint, so arithmetic would widen where the server dialect overflows.
CREATE OR REPLACE FUNCTION bd_range(value bigint, type text) RETURNS bigint
LANGUAGE sql STABLE AS $$
    SELECT CASE
        WHEN type = 'int' AND value NOT BETWEEN -2147483648 AND 2147483647
          OR type = 'smallint' AND value NOT BETWEEN -32768 AND 32767
          OR type = 'tinyint' AND value NOT BETWEEN 0 AND 255
            THEN bd_fail(8115, '将 expression 转换为数据类型 ' || type || ' 时出现算术溢出错误。', value)
        ELSE value
    END
$$;

-- The same for a whole number the server computed as numeric (a bigint's sum, a rounded int).
CREATE OR REPLACE FUNCTION bd_range(value numeric, type text) RETURNS numeric
LANGUAGE sql STABLE AS $$
    SELECT CASE
        WHEN type = 'int' AND value NOT BETWEEN -2147483648 AND 2147483647
          OR type = 'smallint' AND value NOT BETWEEN -32768 AND 32767
          OR type = 'tinyint' AND value NOT BETWEEN 0 AND 255
          OR type = 'bigint' AND value NOT BETWEEN -9223372036854775808 AND 9223372036854775807
            THEN bd_fail(8115, '将 expression 转换为数据类型 ' || type || ' 时出现算术溢出错误。', value)
        ELSE value
    END
$$;

-- A text written to a column of `n` characters: longer is the server dialect's error 2628,
-- unless what is past n is blanks alone, which are cut off silently (as the server does with
-- ANSI_PADDING on). A bpchar value (a text column's) goes in as it is, for a cast to text would
-- drop its trailing blanks; its length ignores them already.
CREATE OR REPLACE FUNCTION bd_fit(value text, n int, tab text, col text) RETURNS text
LANGUAGE sql STABLE AS $$
    SELECT CASE
        WHEN value IS NULL OR char_length(value) <= n THEN value
        WHEN char_length(rtrim(value COLLATE "default", ' ')) <= n THEN left(value, n)
        ELSE bd_fail(2628, 'String or binary data would be truncated in table ''' || tab
                     || ''', column ''' || col || '''. Truncated value: '''
                     || left(value, n) || '''.', value)
    END
$$;

CREATE OR REPLACE FUNCTION bd_fit(value bpchar, n int, tab text, col text) RETURNS bpchar
LANGUAGE sql STABLE AS $$
    SELECT CASE
        WHEN value IS NULL OR char_length(value) <= n THEN value
        ELSE bd_fail(2628, 'String or binary data would be truncated in table ''' || tab
                     || ''', column ''' || col || '''. Truncated value: '''
                     || left(value::text, n) || '''.', value)
    END
$$;

-- ---- dates -------------------------------------------------------------------------------

-- A text in the date forms the server dialect reads with DATEFORMAT ymd: 'YYYY-MM-DD',
-- 'YYYY/MM/DD', 'YYYY.MM.DD', 'YYYYMMDD', each with an optional time after blanks or 'T'
-- ('HH:MM[:SS[.fff]]' with an optional AM/PM), or a time alone; '' is 1900-01-01.
CREATE OR REPLACE FUNCTION bd_dt(value text) RETURNS timestamp
LANGUAGE plpgsql IMMUTABLE STRICT AS $$
DECLARE
    s text COLLATE "default" := btrim(value, E' \t');
    d text[];
    t text[];
    rest text COLLATE "default";
    y int := 1900;
    mo int := 1;
    dd int := 1;
    h int := 0;
    mi int := 0;
    sec int := 0;
    ms int := 0;
BEGIN
    IF s = '' THEN
        RETURN timestamp '1900-01-01';
    END IF;
    IF s ~ '^[0-9]*:' THEN
        rest := ' ' || s;
    ELSE
        d := regexp_match(s, '^([0-9]{4})(?:([0-9]{2})([0-9]{2})|([-/.])([0-9]{1,2})\4([0-9]{1,2}))(.*)$');
        IF d IS NULL THEN
            RAISE EXCEPTION USING MESSAGE = '从字符串转换日期和/或时间时，转换失败。', ERRCODE = 'B0241';
        END IF;
        y := d[1]::int;
        mo := coalesce(d[2], d[5])::int;
        dd := coalesce(d[3], d[6])::int;
        rest := d[7];
        IF y < 1753 OR mo < 1 OR mo > 12 OR dd < 1
           OR dd > extract(day FROM make_date(y, mo, 1) + interval '1 month' - interval '1 day') THEN
            RAISE EXCEPTION USING MESSAGE = '从 varchar 数据类型到 datetime 数据类型的转换产生一个超出范围的值。',
                ERRCODE = 'B0242';
        END IF;
    END IF;
    IF rest <> '' THEN
        t := regexp_match(rest, '^[ Tt]+([0-9]{1,2}):([0-9]{1,2})(?::([0-9]{1,2})(?:[.:]([0-9]{1,9}))?)?(?: *([AaPp])[Mm])? *$');
        IF t IS NULL OR (d IS NULL AND rest !~ '^ [0-9]') THEN
            RAISE EXCEPTION USING MESSAGE = '从字符串转换日期和/或时间时，转换失败。', ERRCODE = 'B0241';
        END IF;
        h := t[1]::int;
        mi := t[2]::int;
        sec := coalesce(t[3], '0')::int;
        ms := coalesce(rpad(left(t[4], 3), 3, '0'), '0')::int;
        -- A datetime keeps time in three-hundredths of a second: .999 is the next second.
        ms := round(round(ms * 0.3) / 0.3);
        IF t[5] IS NOT NULL THEN
            IF h < 1 OR h > 12 THEN
                RAISE EXCEPTION USING MESSAGE = '从字符串转换日期和/或时间时，转换失败。', ERRCODE = 'B0241';
            END IF;
            IF lower(t[5]) = 'p' AND h <> 12 THEN
                h := h + 12;
            ELSIF lower(t[5]) = 'a' AND h = 12 THEN
                h := 0;
            END IF;
        END IF;
        IF h > 23 OR mi > 59 OR sec > 59 THEN
            RAISE EXCEPTION USING MESSAGE = '从字符串转换日期和/或时间时，转换失败。', ERRCODE = 'B0241';
        END IF;
    END IF;
    RETURN make_timestamp(y, mo, dd, h, mi, sec) + ms * interval '1 millisecond';
END
$$;

-- A number of days since 1900-01-01, its fraction a time of day to the millisecond.
CREATE OR REPLACE FUNCTION bd_dt_days(days numeric) RETURNS timestamp
LANGUAGE sql IMMUTABLE AS $$
    SELECT timestamp '1900-01-01' + floor(days) * interval '1 day'
           + round((days - floor(days)) * 86400000) * interval '1 millisecond'
$$;

-- DATEPART; weeks and week days count from Sunday (the server dialect's default first day).
CREATE OR REPLACE FUNCTION bd_datepart(part text, d timestamp) RETURNS int
LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE part
        WHEN 'year' THEN extract(year FROM d)::int
        WHEN 'quarter' THEN extract(quarter FROM d)::int
        WHEN 'month' THEN extract(month FROM d)::int
        WHEN 'dayofyear' THEN extract(doy FROM d)::int
        WHEN 'day' THEN extract(day FROM d)::int
        WHEN 'days' THEN extract(day FROM d)::int
        WHEN 'week' THEN (extract(doy FROM d)::int + extract(dow FROM date_trunc('year', d))::int - 1) / 7 + 1
        WHEN 'weekday' THEN extract(dow FROM d)::int + 1
        WHEN 'hour' THEN extract(hour FROM d)::int
        WHEN 'minute' THEN extract(minute FROM d)::int
        WHEN 'second' THEN floor(extract(second FROM d))::int
        WHEN 'millisecond' THEN floor(extract(milliseconds FROM d))::int % 1000
    END
$$;

-- A date within the server dialect's range, or its overflow error.
CREATE OR REPLACE FUNCTION bd_date_in_range(d timestamp) RETURNS timestamp
LANGUAGE sql STABLE AS $$
    SELECT CASE WHEN d < timestamp '1753-01-01' OR d >= timestamp '10000-01-01'
                THEN bd_fail('将 expression 转换为数据类型 datetime 时出现算术溢出错误。', d)
                ELSE d END
$$;

-- DATEADD in whole units (months keep the day, or the month's last); 'days' is date ± n, whose
-- fraction is a time of day.
CREATE OR REPLACE FUNCTION bd_dateadd(part text, amount numeric, d timestamp) RETURNS timestamp
LANGUAGE sql STABLE AS $$
    SELECT bd_date_in_range(CASE part
        WHEN 'year' THEN d + make_interval(years => trunc(amount)::int)
        WHEN 'quarter' THEN d + make_interval(months => trunc(amount)::int * 3)
        WHEN 'month' THEN d + make_interval(months => trunc(amount)::int)
        WHEN 'dayofyear' THEN d + trunc(amount) * interval '1 day'
        WHEN 'day' THEN d + trunc(amount) * interval '1 day'
        WHEN 'weekday' THEN d + trunc(amount) * interval '1 day'
        WHEN 'week' THEN d + trunc(amount) * interval '7 days'
        WHEN 'hour' THEN d + trunc(amount) * interval '1 hour'
        WHEN 'minute' THEN d + trunc(amount) * interval '1 minute'
        WHEN 'second' THEN d + trunc(amount) * interval '1 second'
        WHEN 'millisecond' THEN d + trunc(amount) * interval '1 millisecond'
        WHEN 'days' THEN d + round(amount * 86400000) * interval '1 millisecond'
    END)
$$;

-- DATEDIFF: the boundaries of the part crossed between the two dates.
CREATE OR REPLACE FUNCTION bd_datediff(part text, a timestamp, b timestamp) RETURNS bigint
LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE part
        WHEN 'year' THEN extract(year FROM b)::bigint - extract(year FROM a)::bigint
        WHEN 'quarter' THEN (extract(year FROM b)::bigint * 4 + extract(quarter FROM b)::bigint)
                          - (extract(year FROM a)::bigint * 4 + extract(quarter FROM a)::bigint)
        WHEN 'month' THEN (extract(year FROM b)::bigint * 12 + extract(month FROM b)::bigint)
                        - (extract(year FROM a)::bigint * 12 + extract(month FROM a)::bigint)
        WHEN 'dayofyear' THEN (b::date - a::date)::bigint
        WHEN 'day' THEN (b::date - a::date)::bigint
        WHEN 'days' THEN (b::date - a::date)::bigint
        WHEN 'weekday' THEN (b::date - a::date)::bigint
        WHEN 'week' THEN floor((b::date - date '1970-01-01' + 4) / 7.0)::bigint
                       - floor((a::date - date '1970-01-01' + 4) / 7.0)::bigint
        WHEN 'hour' THEN (b::date - a::date)::bigint * 24
                       + extract(hour FROM b)::bigint - extract(hour FROM a)::bigint
        WHEN 'minute' THEN ((b::date - a::date)::bigint * 24
                         + extract(hour FROM b)::bigint - extract(hour FROM a)::bigint) * 60
                         + extract(minute FROM b)::bigint - extract(minute FROM a)::bigint
        WHEN 'second' THEN floor(extract(epoch FROM b))::bigint - floor(extract(epoch FROM a))::bigint
        WHEN 'millisecond' THEN floor(extract(epoch FROM b) * 1000)::bigint
                              - floor(extract(epoch FROM a) * 1000)::bigint
    END
$$;

-- A date as text in one of CONVERT's styles (0 and 100: 'Mar  9 2025  8:30AM').
CREATE OR REPLACE FUNCTION bd_date_text(d timestamp, style int) RETURNS text
LANGUAGE sql STABLE AS $$
    SELECT CASE style
        WHEN 1 THEN to_char(d, 'MM/DD/YY')
        WHEN 101 THEN to_char(d, 'MM/DD/YYYY')
        WHEN 2 THEN to_char(d, 'YY.MM.DD')
        WHEN 102 THEN to_char(d, 'YYYY.MM.DD')
        WHEN 3 THEN to_char(d, 'DD/MM/YY')
        WHEN 103 THEN to_char(d, 'DD/MM/YYYY')
        WHEN 4 THEN to_char(d, 'DD.MM.YY')
        WHEN 104 THEN to_char(d, 'DD.MM.YYYY')
        WHEN 5 THEN to_char(d, 'DD-MM-YY')
        WHEN 105 THEN to_char(d, 'DD-MM-YYYY')
        WHEN 10 THEN to_char(d, 'MM-DD-YY')
        WHEN 110 THEN to_char(d, 'MM-DD-YYYY')
        WHEN 11 THEN to_char(d, 'YY/MM/DD')
        WHEN 111 THEN to_char(d, 'YYYY/MM/DD')
        WHEN 12 THEN to_char(d, 'YYMMDD')
        WHEN 112 THEN to_char(d, 'YYYYMMDD')
        WHEN 8 THEN to_char(d, 'HH24:MI:SS')
        WHEN 108 THEN to_char(d, 'HH24:MI:SS')
        WHEN 20 THEN to_char(d, 'YYYY-MM-DD HH24:MI:SS')
        WHEN 120 THEN to_char(d, 'YYYY-MM-DD HH24:MI:SS')
        WHEN 21 THEN to_char(d, 'YYYY-MM-DD HH24:MI:SS.MS')
        WHEN 121 THEN to_char(d, 'YYYY-MM-DD HH24:MI:SS.MS')
        WHEN 23 THEN to_char(d, 'YYYY-MM-DD')
        WHEN 126 THEN to_char(d, 'YYYY-MM-DD"T"HH24:MI:SS')
                      || CASE WHEN extract(milliseconds FROM d)::numeric % 1000 >= 1
                              THEN to_char(d, '.MS') ELSE '' END
        ELSE to_char(d, 'Mon ') || lpad(to_char(d, 'FMDD'), 2) || to_char(d, ' YYYY ')
             || lpad(to_char(d, 'FMHH12'), 2) || to_char(d, ':MIAM')
    END
$$;

-- ---- numbers -----------------------------------------------------------------------------

-- Texts as CONVERT reads them into numbers: blanks around allowed, '' is 0.
CREATE OR REPLACE FUNCTION bd_int(value text) RETURNS int
LANGUAGE sql STABLE AS $$
    SELECT CASE
        WHEN btrim(value, E' \t') = '' THEN 0
        WHEN btrim(value, E' \t') COLLATE "default" ~ '^[+-]?[0-9]+$' THEN btrim(value, E' \t')::int
        ELSE bd_fail(245, '在将 varchar 值 ''' || value || ''' 转换成数据类型 int 时失败。', 0)
    END
$$;

CREATE OR REPLACE FUNCTION bd_float(value text) RETURNS double precision
LANGUAGE sql STABLE AS $$
    SELECT CASE
        WHEN btrim(value, E' \t') = '' THEN 0
        WHEN btrim(value, E' \t') COLLATE "default" ~ '^[+]?-?([0-9]+\.?[0-9]*|\.[0-9]+)([eE][+-]?[0-9]+)?$'
            THEN btrim(value, E' \t')::double precision
        ELSE bd_fail(8114, '从数据类型 varchar 转换为 float 时出错。', 0::double precision)
    END
$$;

CREATE OR REPLACE FUNCTION bd_num(value text) RETURNS numeric
LANGUAGE sql STABLE AS $$
    SELECT CASE
        WHEN btrim(value, E' \t') = '' THEN 0
        WHEN btrim(value, E' \t') COLLATE "default" ~ '^[+]?-?([0-9]+\.?[0-9]*|\.[0-9]+)([eE][+-]?[0-9]+)?$'
            THEN btrim(value, E' \t')::numeric
        ELSE bd_fail('从数据类型 varchar 转换为 numeric 时出错。', 0::numeric)
    END
$$;

CREATE OR REPLACE FUNCTION bd_bit(value text) RETURNS int
LANGUAGE sql STABLE AS $$
    SELECT CASE
        WHEN lower(btrim(value, E' \t')) = 'true' THEN 1
        WHEN lower(btrim(value, E' \t')) = 'false' THEN 0
        WHEN btrim(value, E' \t') = '' THEN 0
        WHEN btrim(value, E' \t') COLLATE "default" ~ '^[+]?-?([0-9]+\.?[0-9]*|\.[0-9]+)([eE][+-]?[0-9]+)?$'
            THEN (btrim(value, E' \t')::double precision <> 0)::int
        ELSE bd_fail('在将 varchar 值 ''' || btrim(value, E' \t') || ''' 转换成数据类型 bit 时失败。', 0)
    END
$$;

-- A number of a known type as text, as CONVERT writes it (see bd_numfit for the length): a whole
-- number plainly, a decimal with its scale, money with two places (style 0), with two and
-- thousands separated by commas (1) or with four (2).
CREATE OR REPLACE FUNCTION bd_numtext(value numeric, kind text, digits int, target text, n int) RETURNS text
LANGUAGE plpgsql STABLE STRICT AS $$
DECLARE
    t text COLLATE "default";
BEGIN
    IF kind = 'int' THEN
        t := round(value)::text;
    ELSIF kind = 'decimal' THEN
        t := round(value, digits)::text;
    ELSE
        t := CASE WHEN digits = 2 THEN round(value, 4) ELSE round(round(value, 4), 2) END::text;
        IF digits = 1 THEN
            t := regexp_replace(split_part(t, '.', 1), '([0-9])(?=([0-9]{3})+$)', '\1,', 'g')
                 || '.' || split_part(t, '.', 2);
        END IF;
    END IF;
    RETURN bd_numfit(t, kind, target, n, NULL);
END
$$;

-- A float (or a real) as text: six significant digits without trailing zeros, in the exponent
-- form (at least three exponent digits) below 1e-4 and from 1e6 (style 0); always in the
-- exponent form with eight (style 1) or sixteen digits (style 2).
CREATE OR REPLACE FUNCTION bd_numtext(value float8, kind text, digits int, target text, n int) RETURNS text
LANGUAGE plpgsql STABLE STRICT AS $$
DECLARE
    x float8 := CASE WHEN kind = 'real' THEN value::float4::float8 ELSE value END;
    sig int := CASE digits WHEN 1 THEN 8 WHEN 2 THEN 16 ELSE 6 END;
    s text COLLATE "default";
    m text COLLATE "default";
    ds text COLLATE "default";
    e int;
    t text COLLATE "default";
BEGIN
    s := btrim(to_char(x, '9.' || repeat('9', sig - 1) || 'EEEE'));
    m := split_part(s, 'e', 1);
    e := split_part(s, 'e', 2)::int;
    IF digits IN (1, 2) OR e < -4 OR e >= sig THEN
        IF digits NOT IN (1, 2) THEN
            m := rtrim(rtrim(m, '0'), '.');
        END IF;
        t := m || 'e' || CASE WHEN e < 0 THEN '-' ELSE '+' END || lpad(abs(e)::text, 3, '0');
    ELSE
        ds := replace(ltrim(m, '-'), '.', '');
        IF e >= 0 THEN
            t := left(ds, e + 1) || '.' || substr(ds, e + 2);
        ELSE
            t := '0.' || repeat('0', -e - 1) || ds;
        END IF;
        t := rtrim(rtrim(t, '0'), '.');
        IF left(m, 1) = '-' THEN
            t := '-' || t;
        END IF;
    END IF;
    RETURN bd_numfit(t, kind, target, n, round(x::numeric, 6)::text);
END
$$;

-- The text of a number in a text of type `target` and `n` characters (-1: max), filled up with
-- blanks for char and nchar. Too long, a whole number is '*' in char and varchar; anything else
-- is the server dialect's error.
CREATE OR REPLACE FUNCTION bd_numfit(t text, kind text, target text, n int, shown text) RETURNS text
LANGUAGE sql STABLE AS $$
    SELECT CASE
        WHEN n < 0 THEN t
        WHEN char_length(t) <= n THEN CASE WHEN target IN ('char', 'nchar') THEN rpad(t, n) ELSE t END
        WHEN kind = 'int' AND target = 'varchar' THEN '*'
        WHEN kind = 'int' AND target = 'char' THEN rpad('*', n)
        WHEN kind = 'int' THEN
            bd_fail(8115, '将 expression 转换为数据类型 ' || target || ' 时出现算术溢出错误。', t)
        WHEN kind = 'decimal' THEN
            bd_fail(8115, '将 numeric 转换为数据类型 ' || target || ' 时出现算术溢出错误。', t)
        WHEN kind IN ('money', 'smallmoney') THEN
            bd_fail(234, '没有足够的结果空间将 ' || kind || ' 值转换为 ' || target || '。', t)
        ELSE bd_fail(232, '类型 ' || target || ' 出现算术溢出错误，值 = ' || shown || '。', t)
    END
$$;

-- A text as decimal(p, s) ('decimal'), or as 'money' or 'smallmoney': a money text may carry a
-- sign and a currency symbol in either order and commas anywhere among its digits ('' is 0); a
-- decimal text is digits with a sign and a point alone. Too large for the type is error 8115.
CREATE OR REPLACE FUNCTION bd_textnum(value text, kind text, p int, s int) RETURNS numeric
LANGUAGE plpgsql STABLE STRICT AS $$
DECLARE
    t text COLLATE "default" := btrim(value, E' \t');
    m text[];
    r numeric;
    lim numeric;
BEGIN
    IF kind = 'decimal' THEN
        IF t !~ '^[+-]?([0-9]+\.?[0-9]*|\.[0-9]+)$' THEN
            RAISE EXCEPTION USING MESSAGE = '从数据类型 varchar 转换为 numeric 时出错。', ERRCODE = 'B8114';
        END IF;
        r := round(t::numeric, s);
        IF abs(r) >= 10::numeric ^ (p - s) THEN
            RAISE EXCEPTION USING MESSAGE = '将 varchar 转换为数据类型 numeric 时出现算术溢出错误。',
                ERRCODE = 'B8115';
        END IF;
        RETURN r;
    END IF;
    m := regexp_match(t, '^([+-]?)(\$|¥|£|€|￥)?([+-]?)([0-9,]*\.?[0-9,]*)$');
    IF m IS NULL OR (m[1] <> '' AND m[3] <> '') OR (m[4] <> '' AND replace(m[4], ',', '') !~ '[0-9]') THEN
        RAISE EXCEPTION USING MESSAGE = '无法将 char 值转换为 money。该 char 值的语法有误。', ERRCODE = 'B0235';
    END IF;
    r := CASE WHEN replace(m[4], ',', '') = '' THEN 0 ELSE round(replace(m[4], ',', '')::numeric, 4) END;
    IF m[1] = '-' OR m[3] = '-' THEN
        r := -r;
    END IF;
    lim := CASE kind WHEN 'money' THEN 922337203685477.5807 ELSE 214748.3647 END;
    IF r > lim OR r < -lim - 0.0001 THEN
        RAISE EXCEPTION USING MESSAGE = '将 varchar 转换为数据类型 ' || kind || ' 时出现算术溢出错误。',
            ERRCODE = 'B8115';
    END IF;
    RETURN r;
END
$$;

-- A date written month first ('mdy') or day first ('dmy') with a year of `year_digits` digits
-- (two: 1950 to 2049), as 'YYYY-MM-DD' and what follows it (a time), for bd_dt. A date of eight
-- digits, a time alone and '' go through as they are; any other text is error 241, for it would
-- be read in another order.
CREATE OR REPLACE FUNCTION bd_ymd(value text, date_order text, year_digits int) RETURNS text
LANGUAGE plpgsql STABLE STRICT AS $$
DECLARE
    s text COLLATE "default" := btrim(value, E' \t');
    m text[];
    y text;
BEGIN
    IF s = '' OR s ~ '^[0-9]*:' OR s ~ '^[0-9]{8}([ Tt]|$)' THEN
        RETURN value;
    END IF;
    m := regexp_match(s, '^([0-9]{1,2})([-/.])([0-9]{1,2})\2([0-9]{' || year_digits || '})([ Tt].*)?$');
    IF m IS NULL THEN
        RAISE EXCEPTION USING MESSAGE = '从字符串转换日期和/或时间时，转换失败。', ERRCODE = 'B0241';
    END IF;
    y := CASE WHEN year_digits = 2 THEN CASE WHEN m[4]::int < 50 THEN '20' ELSE '19' END || m[4] ELSE m[4] END;
    RETURN y || '-' || CASE WHEN date_order = 'mdy' THEN m[1] || '-' || m[3] ELSE m[3] || '-' || m[1] END
           || coalesce(m[5], '');
END
$$;

-- A decimal result of the dialect's type decimal(p, s) whose precision reached 38 digits:
-- beyond it is the dialect's arithmetic overflow.
CREATE OR REPLACE FUNCTION bd_dchk(value numeric, p int, s int) RETURNS numeric
LANGUAGE sql STABLE AS $$
    SELECT CASE WHEN abs(value) >= 10::numeric ^ (p - s)
                THEN bd_fail(8115, '将 expression 转换为数据类型 numeric 时出现算术溢出错误。', value)
                ELSE value END
$$;

-- A quotient of decimals as the dialect gives it: cut towards zero (not rounded) at the scale
-- s of its type decimal(p, s). div() is exact; the rounding to s places before the shift only
-- gives the whole number those places, so that the shift is exact too.
CREATE OR REPLACE FUNCTION bd_ddiv(a numeric, b numeric, p int, s int) RETURNS numeric
LANGUAGE sql STABLE AS $$
    SELECT bd_dchk(trunc(round(div(a * 10::numeric ^ s, b), s) / 10::numeric ^ s, s), p, s)
$$;

-- ROUND at a decimal place (left of the point when negative), half away from zero; cut instead
-- when `cut` is not 0.
CREATE OR REPLACE FUNCTION bd_round(value numeric, digits bigint, cut bigint) RETURNS numeric
LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN cut <> 0 THEN trunc(value, digits::int) ELSE round(value, digits::int) END
$$;

-- ---- texts -------------------------------------------------------------------------------

CREATE OR REPLACE FUNCTION bd_left(value text, n bigint) RETURNS text
LANGUAGE sql STABLE AS $$
    SELECT CASE WHEN n < 0 THEN bd_fail('传递给 LEFT 或 SUBSTRING 函数的长度参数无效。', value)
                ELSE left(value, least(n, 2147483647)::int) END
$$;

CREATE OR REPLACE FUNCTION bd_right(value text, n bigint) RETURNS text
LANGUAGE sql STABLE AS $$
    SELECT CASE WHEN n < 0 THEN bd_fail('传递给 RIGHT 函数的长度参数无效。', value)
                ELSE right(value, least(n, 2147483647)::int) END
$$;

-- SUBSTRING: positions before the first character count towards the length.
CREATE OR REPLACE FUNCTION bd_substring(value text, start bigint, n bigint) RETURNS text
LANGUAGE sql STABLE AS $$
    SELECT CASE WHEN n < 0 THEN bd_fail('传递给 LEFT 或 SUBSTRING 函数的长度参数无效。', value)
                ELSE substr(value, greatest(least(start, 2147483647), -2147483647)::int,
                            least(n, 2147483647)::int) END
$$;

-- CHARINDEX without regard to case: the position of `find` in `value` from `start`, 0 if none.
CREATE OR REPLACE FUNCTION bd_charindex(find text, value text, start bigint DEFAULT 1) RETURNS int
LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN find COLLATE "default" = '' THEN 0 ELSE coalesce(nullif(strpos(
               lower(substr(value, greatest(start, 1)::int)) COLLATE "default",
               lower(find) COLLATE "default"), 0) + greatest(start, 1)::int - 1, 0) END
$$;

-- REPLICATE: NULL for a negative count; the result stops at 8000 characters, as a text that is
-- not of unlimited length does on the server.
CREATE OR REPLACE FUNCTION bd_replicate(value text, n bigint) RETURNS text
LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN n < 0 THEN NULL
                ELSE left(repeat(value, least(n, 8000 / greatest(length(value), 1) + 1)::int), 8000)
           END
$$;

-- STUFF: `n` characters from `start` replaced by `replacement` (NULL only deletes); NULL when
-- start is not a position of the text or n is negative.
CREATE OR REPLACE FUNCTION bd_stuff(value text, start bigint, n bigint, replacement text) RETURNS text
LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN start < 1 OR start > length(value) OR n < 0 THEN NULL
                ELSE left(value, (start - 1)::int) || coalesce(replacement, '')
                     || substr(value, least(start + least(n, 2147483647), 2147483647)::int) END
$$;

-- REPLACE without regard to case.
CREATE OR REPLACE FUNCTION bd_replace(value text, find text, replacement text) RETURNS text
LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN find COLLATE "default" = '' THEN value
                ELSE regexp_replace(value COLLATE "default",
                                    regexp_replace(find COLLATE "default", '([^[:alnum:]])', '\\\1', 'g'),
                                    replace(replacement, '\', '\\'), 'gi') END
$$;

-- A LIKE pattern of the server dialect (%, _, [abc], [a-z], [^…], an optional escape character)
-- as an anchored regular expression matched without regard to case; trailing blanks of the
-- pattern do not count. The translator converts patterns it knows the same way.
CREATE OR REPLACE FUNCTION bd_like_regex(pattern text, escape text) RETURNS text
LANGUAGE plpgsql IMMUTABLE AS $$
DECLARE
    p text COLLATE "default" := rtrim(pattern, ' ');
    n int := length(p);
    i int := 1;
    j int;
    c text COLLATE "default";
    lo text COLLATE "default";
    hi text COLLATE "default";
    members text COLLATE "default";
    negate boolean;
    closed boolean;
    first boolean;
    out text COLLATE "default" := '^';
BEGIN
    IF escape IS NOT NULL AND length(escape) <> 1 THEN
        RAISE EXCEPTION USING MESSAGE = '转义符无效。', ERRCODE = '22025';
    END IF;
    WHILE i <= n LOOP
        c := substr(p, i, 1);
        i := i + 1;
        IF escape IS NOT NULL AND c = escape COLLATE "C" THEN
            IF i > n THEN
                RETURN '[^\s\S]';
            END IF;
            out := out || bd_regex_char(substr(p, i, 1));
            i := i + 1;
        ELSIF c = '%' THEN
            out := out || '.*';
        ELSIF c = '_' THEN
            out := out || '.';
        ELSIF c <> '[' THEN
            out := out || bd_regex_char(c);
        ELSE
            j := i;
            negate := false;
            IF j <= n AND substr(p, j, 1) = '^' THEN
                negate := true;
                j := j + 1;
            END IF;
            members := '';
            closed := false;
            first := true;
            WHILE j <= n LOOP
                IF substr(p, j, 1) = ']' AND NOT first THEN
                    j := j + 1;
                    closed := true;
                    EXIT;
                END IF;
                first := false;
                -- Letters compare without regard to case: a range of lower-case letters.
                lo := translate(substr(p, j, 1), 'ABCDEFGHIJKLMNOPQRSTUVWXYZ', 'abcdefghijklmnopqrstuvwxyz');
                hi := lo;
                j := j + 1;
                IF j + 1 <= n AND substr(p, j, 1) = '-' AND substr(p, j + 1, 1) <> ']' THEN
                    hi := translate(substr(p, j + 1, 1), 'ABCDEFGHIJKLMNOPQRSTUVWXYZ', 'abcdefghijklmnopqrstuvwxyz');
                    j := j + 2;
                END IF;
                IF ascii(lo) <= ascii(hi) THEN
                    members := members || bd_regex_char(lo);
                    IF hi <> lo THEN
                        members := members || '-' || bd_regex_char(hi);
                    END IF;
                END IF;
            END LOOP;
            IF NOT closed THEN
                out := out || bd_regex_char('[');
            ELSE
                i := j;
                IF members = '' THEN
                    out := out || CASE WHEN negate THEN '.' ELSE '[^\s\S]' END;
                ELSE
                    out := out || '[' || CASE WHEN negate THEN '^' ELSE '' END || members || ']';
                END IF;
            END IF;
        END IF;
    END LOOP;
    RETURN out || '$';
END
$$;

-- One character of a regular expression as itself.
CREATE OR REPLACE FUNCTION bd_regex_char(c text) RETURNS text
LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN c COLLATE "default" ~ '^[A-Za-z0-9]$' THEN c
                WHEN ascii(c) > 65535 THEN '\U' || lpad(to_hex(ascii(c)), 8, '0')
                ELSE '\u' || lpad(to_hex(ascii(c)), 4, '0') END
$$;

CREATE OR REPLACE FUNCTION bd_like(value text, pattern text) RETURNS boolean
LANGUAGE sql IMMUTABLE AS $$
    SELECT rtrim(value, ' ') COLLATE "default" ~* bd_like_regex(pattern COLLATE "default", NULL)
$$;

CREATE OR REPLACE FUNCTION bd_like(value text, pattern text, escape text) RETURNS boolean
LANGUAGE sql IMMUTABLE AS $$
    SELECT rtrim(value, ' ') COLLATE "default" ~* bd_like_regex(pattern COLLATE "default", escape COLLATE "default")
$$;

-- PATINDEX: the position where the pattern's match starts, 0 for none. A pattern that starts with
-- % finds its remainder at the first position from which the rest of the text matches it; any
-- other pattern matches the whole text or nothing. Patterns as LIKE reads them.
CREATE OR REPLACE FUNCTION bd_patindex(pattern text, value text) RETURNS int
LANGUAGE sql IMMUTABLE STRICT AS $$
    SELECT CASE WHEN left(pattern, 1) COLLATE "default" = '%'
                THEN regexp_instr(rtrim(value, ' ') COLLATE "default",
                                  substr(bd_like_regex(substr(pattern, 2) COLLATE "default", NULL), 2),
                                  1, 1, 0, 'i')
                WHEN rtrim(value, ' ') COLLATE "default" ~* bd_like_regex(pattern COLLATE "default", NULL)
                THEN 1 ELSE 0 END
$$;

-- ISDATE: 1 for a text the date reader (bd_dt) takes, else 0 (NULL and a blank text included).
CREATE OR REPLACE FUNCTION bd_isdate(value text) RETURNS int
LANGUAGE plpgsql IMMUTABLE AS $$
BEGIN
    IF value IS NULL OR btrim(value, E' \t') = '' THEN
        RETURN 0;
    END IF;
    PERFORM bd_dt(value);
    RETURN 1;
EXCEPTION WHEN others THEN
    RETURN 0;
END
$$;

-- A number converted to decimal(p, s) ('numeric'), 'money' or 'smallmoney': rounded half away
-- from zero to the scale; beyond the precision or money's range is the dialect's overflow, whose
-- message names the type converted from (`source`).
CREATE OR REPLACE FUNCTION bd_dcast(value numeric, p int, s int, source text, target text) RETURNS numeric
LANGUAGE sql STABLE AS $$
    SELECT CASE WHEN CASE target
                         WHEN 'money' THEN round(value, s) NOT BETWEEN -922337203685477.5808 AND 922337203685477.5807
                         WHEN 'smallmoney' THEN round(value, s) NOT BETWEEN -214748.3648 AND 214748.3647
                         ELSE abs(round(value, s)) >= 10::numeric ^ (p - s) END
                THEN bd_fail(8115, '将 ' || source || ' 转换为数据类型 ' || target || ' 时出现算术溢出错误。', value)
                ELSE round(value, s) END
$$;

-- STR(x, length, decimal): x right-justified in `length` characters with `decimal` places (at
-- most 16), or with as many of them as fit; '*' filling the length when not even the rounded
-- whole number fits. x is rounded half away from zero on its shortest decimal form. The dialect
-- documents no result for a length below 1 or a negative decimal: refused.
CREATE OR REPLACE FUNCTION bd_str(value float8, len int, places int) RETURNS text
LANGUAGE plpgsql STABLE SET extra_float_digits = 1 AS $$
DECLARE
    n numeric;
    t text;
BEGIN
    IF value IS NULL OR len IS NULL OR places IS NULL THEN
        RETURN NULL;
    END IF;
    IF len < 1 OR places < 0 THEN
        RAISE EXCEPTION USING MESSAGE = 'STR with a length below 1 or a negative decimal is not supported: its result is not documented',
            ERRCODE = '22000';
    END IF;
    n := value::text::numeric;
    FOR k IN REVERSE least(places, 16)..0 LOOP
        t := round(n, k)::text;
        IF char_length(t) <= len THEN
            RETURN lpad(t, len);
        END IF;
    END LOOP;
    RETURN repeat('*', len);
END
$$;
