#include "db/DialectoSqlite.h"

namespace presupuestos {

namespace {

using namespace tokens;

// SQLite reads bracketed names itself: a made-up one is written so too.
QString entreCorchetes(const QString& n) { return QLatin1Char('[') + QString(n).replace(QLatin1Char(']'), QStringLiteral("]]")) + QLatin1Char(']'); }

// A three-part name's database is attached under its own name.
TokenSql baseAdjunta(const QString& bd) { return TokenSql{TokenSql::Tipo::Comillas, entreComillas(bd)}; }

void pasoTruncateSqlite(Tokens& t)
{
    const int truncate = siguiente(t, -1);
    if (!en(t, truncate) || !esPalabra(t[truncate], "TRUNCATE"))
        return;
    const int tabla = siguiente(t, truncate);
    if (en(t, tabla) && esPalabra(t[tabla], "TABLE"))
        sustituir(t, 0, tabla, QStringLiteral("DELETE FROM"));
}

template <typename Paso>
QString aplicar(const QString& sql, Paso paso)
{
    Tokens t = tokenizar(sql);
    paso(t);
    return unir(t);
}

} // namespace

std::vector<TokenSql> DialectoSqlite::tokenizar(const QString& sql) { return tokens::tokenizar(sql); }

QString DialectoSqlite::tablasTemporales(const QString& sql) { return aplicar(sql, temporales); }
QString DialectoSqlite::isNull(const QString& sql)
{
    return aplicar(sql, [](Tokens& t) { tokens::isNull(t, QStringLiteral("IFNULL")); });
}
QString DialectoSqlite::top(const QString& sql) { return aplicar(sql, tokens::top); }
QString DialectoSqlite::truncate(const QString& sql) { return aplicar(sql, pasoTruncateSqlite); }
QString DialectoSqlite::asignacionOr(const QString& sql) { return aplicar(sql, tokens::asignacionOr); }
QString DialectoSqlite::pivot(const QString& sql)
{
    return aplicar(sql, [](Tokens& t) { tokens::pivot(t, entreCorchetes); });
}

QString DialectoSqlite::nombresTresPartes(const QString& sql, QStringList* basesDatos)
{
    return aplicar(sql, [basesDatos](Tokens& t) { tresPartes(t, basesDatos, baseAdjunta); });
}

SqlAdaptado DialectoSqlite::adaptar(const QString& tsql)
{
    SqlAdaptado r;
    Tokens t = tokenizar(tsql);
    temporales(t);
    tresPartes(t, &r.basesDatos, baseAdjunta);
    tokens::isNull(t, QStringLiteral("IFNULL"));
    tokens::asignacionOr(t);
    tokens::pivot(t, entreCorchetes);
    tokens::top(t);
    // The transaction holds the whole database already.
    tokens::bloqueo(t, false);
    pasoTruncateSqlite(t);
    r.texto = unir(t);
    return r;
}

} // namespace presupuestos
