#include "db/DialectoPostgres.h"

#include <QSet>

namespace presupuestos {

namespace {

using namespace tokens;
using Tipo = TokenSql::Tipo;

// PostgreSQL's words that cannot name a column or a table unquoted.
bool reservada(const QString& palabra)
{
    static const QSet<QString> palabras = [] {
        QSet<QString> s;
        for (const char* p :
             {"all", "analyse", "analyze", "and", "any", "array", "as", "asc", "asymmetric", "authorization", "binary", "both",
              "case", "cast", "check", "collate", "collation", "column", "concurrently", "constraint", "create", "cross",
              "current_catalog", "current_date", "current_role", "current_schema", "current_time", "current_timestamp",
              "current_user", "default", "deferrable", "desc", "distinct", "do", "else", "end", "except", "false", "fetch",
              "for", "foreign", "freeze", "from", "full", "grant", "group", "having", "ilike", "in", "initially", "inner",
              "intersect", "into", "is", "isnull", "join", "lateral", "leading", "left", "like", "limit", "localtime",
              "localtimestamp", "natural", "not", "notnull", "null", "offset", "on", "only", "or", "order", "outer",
              "overlaps", "placing", "primary", "references", "returning", "right", "select", "session_user", "similar",
              "some", "symmetric", "table", "tablesample", "then", "to", "trailing", "true", "union", "unique", "user",
              "using", "variadic", "verbose", "when", "where", "window", "with"})
            s.insert(QString::fromLatin1(p));
        return s;
    }();
    return palabras.contains(palabra.toLower());
}

bool nombreSimple(const QString& n)
{
    if (n.isEmpty() || n.size() > 63)
        return false;
    for (int i = 0; i < n.size(); ++i) {
        const QChar c = n[i];
        const bool letra = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_';
        const bool digito = c >= u'0' && c <= u'9';
        if (!letra && !(digito && i > 0))
            return false;
    }
    return true;
}

TokenSql tokenNombre(const QString& n)
{
    const QString id = DialectoPostgres::identificador(n);
    return TokenSql{id.startsWith(QLatin1Char('"')) ? Tipo::Comillas : Tipo::Palabra, id};
}

void pasoNombres(Tokens& t)
{
    for (int i = 0; i < static_cast<int>(t.size()); ++i)
        if (t[i].tipo == Tipo::Corchetes)
            poner(t, i, tokenNombre(nombre(t[i])));
}

// A function of SQL Server called by name: the name (not after a point, as
// a column or a schema's function would be) and its opening parenthesis.
int llamada(const Tokens& t, int i, const char* funcion)
{
    if (!esPalabra(t[i], funcion))
        return -1;
    const int previo = anterior(t, i);
    if (en(t, previo) && esSigno(t[previo], "."))
        return -1;
    const int abre = siguiente(t, i);
    return en(t, abre) && esSigno(t[abre], "(") ? abre : -1;
}

// LEN, MONTH, YEAR and SUSER_SNAME as PostgreSQL writes them. The
// parentheses of the call stay tokens of their own (the pivot step counts
// them); what wraps the argument goes in beside them.
void pasoFunciones(Tokens& t)
{
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
        struct Forma {
            const char* funcion;
            const char* antes;
            const char* despues;
        };
        // LEN counts characters without the trailing blanks; MONTH and YEAR
        // take a date, or a text that reads as one, and give a whole number.
        static const Forma formas[] = {
            {"LEN", "LENGTH(RTRIM(CAST", " AS TEXT))"},
            {"MONTH", "CAST(EXTRACT(MONTH FROM CAST", " AS DATE)) AS INT"},
            {"YEAR", "CAST(EXTRACT(YEAR FROM CAST", " AS DATE)) AS INT"},
        };
        for (const Forma& f : formas) {
            const int abre = llamada(t, i, f.funcion);
            if (abre < 0)
                continue;
            const int cierra = cierreDe(t, abre);
            if (cierra < 0)
                break;
            t.insert(t.begin() + cierra, TokenSql{Tipo::Crudo, QString::fromLatin1(f.despues)});
            t[i] = TokenSql{Tipo::Crudo, QString::fromLatin1(f.antes)};
            // Blanks between the name and its parenthesis would split the cast.
            t.erase(t.begin() + i + 1, t.begin() + abre);
            break;
        }
        const int abre = llamada(t, i, "SUSER_SNAME");
        if (abre >= 0) {
            const int cierra = siguiente(t, abre);
            if (en(t, cierra) && esSigno(t[cierra], ")"))
                sustituir(t, i, cierra, QStringLiteral("SESSION_USER"));
        }
    }
}

// Column types of the tables the worksheet creates: MONEY holds
// ten-thousandths exactly as NUMERIC(19,4) does (PostgreSQL's own money type
// keeps the currency of the server's locale).
void pasoTipos(Tokens& t)
{
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
        if (!esPalabra(t[i], "MONEY"))
            continue;
        const int columna = anterior(t, i);
        const int despues = siguiente(t, i);
        if (!en(t, columna) || !esNombre(t[columna]))
            continue;
        if (en(t, despues) && (esSigno(t[despues], "(") || esSigno(t[despues], ".")))
            continue;
        t[i] = TokenSql{Tipo::Crudo, QStringLiteral("NUMERIC(19,4)")};
    }
}

// SQL Server sorts a union by "c.Dpto" when the column is in the select
// list; PostgreSQL knows only the union's own column names there.
void pasoOrdenUnion(Tokens& t)
{
    bool union_ = false;
    int orden = -1;
    int nivel = 0;
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
        if (esSigno(t[i], "("))
            ++nivel;
        else if (esSigno(t[i], ")"))
            --nivel;
        else if (nivel == 0 && esPalabra(t[i], "UNION"))
            union_ = true;
        else if (nivel == 0 && esPalabra(t[i], "ORDER")) {
            const int by = siguiente(t, i);
            if (en(t, by) && esPalabra(t[by], "BY"))
                orden = by;
        }
    }
    if (!union_ || orden < 0)
        return;
    nivel = 0;
    for (int i = orden + 1; i < static_cast<int>(t.size()); ++i) {
        if (esSigno(t[i], "("))
            ++nivel;
        else if (esSigno(t[i], ")"))
            --nivel;
        if (nivel != 0 || !esNombre(t[i]) || !en(t, i + 2) || !esSigno(t[i + 1], ".") || !esNombre(t[i + 2]))
            continue;
        const int previo = anterior(t, i);
        if (en(t, previo) && esSigno(t[previo], "."))
            continue;
        t.erase(t.begin() + i, t.begin() + i + 2);
    }
}

// NEXT VALUE FOR a sequence: PostgreSQL's nextval of it.
void pasoSecuencias(Tokens& t)
{
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
        if (!esPalabra(t[i], "NEXT"))
            continue;
        const int valor = siguiente(t, i);
        const int para = siguiente(t, valor);
        const int nombreSecuencia = siguiente(t, para);
        if (!en(t, nombreSecuencia) || !esPalabra(t[valor], "VALUE") || !esPalabra(t[para], "FOR") || !esNombre(t[nombreSecuencia]))
            continue;
        QString id = DialectoPostgres::identificador(nombre(t[nombreSecuencia]));
        if (!id.startsWith(QLatin1Char('"')))
            id = id.toLower();
        sustituir(t, i, nombreSecuencia, QStringLiteral("nextval('") + id.replace(QLatin1Char('\''), QStringLiteral("''")) + QStringLiteral("')"));
    }
}

QString citar(const QString& n) { return entreComillas(n); }

TokenSql base(const QString& bd) { return tokenNombre(bd); }

template <typename Paso>
QString aplicar(const QString& sql, Paso paso)
{
    Tokens t = tokenizar(sql);
    paso(t);
    return unir(t);
}

} // namespace

QString DialectoPostgres::identificador(const QString& nombre)
{
    if (nombreSimple(nombre))
        return reservada(nombre) ? entreComillas(nombre.toLower()) : nombre;
    return entreComillas(nombre);
}

QString DialectoPostgres::nombres(const QString& sql) { return aplicar(sql, pasoNombres); }
QString DialectoPostgres::funciones(const QString& sql) { return aplicar(sql, pasoFunciones); }
QString DialectoPostgres::tipos(const QString& sql) { return aplicar(sql, pasoTipos); }
QString DialectoPostgres::ordenUnion(const QString& sql) { return aplicar(sql, pasoOrdenUnion); }

QString DialectoPostgres::adaptar(const QString& tsql)
{
    Tokens t = tokenizar(tsql);
    // Three-part names and temporary tables first, while their names are
    // still as composed; then every other bracketed name.
    tresPartes(t, nullptr, base);
    temporales(t);
    pasoNombres(t);
    tokens::isNull(t, QStringLiteral("COALESCE"));
    pasoFunciones(t);
    pasoSecuencias(t);
    pasoTipos(t);
    asignacionOr(t);
    pasoOrdenUnion(t);
    pivot(t, citar);
    top(t);
    bloqueo(t, true);
    return unir(t);
}

} // namespace presupuestos
