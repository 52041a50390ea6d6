// libFuzzer target for the SQLite and PostgreSQL dialects. The input is taken as UTF-8
// statement text. Besides the sanitizers' own checks it asserts that
//  - the tokens joined give the text back;
//  - adapting leaves every quoted literal as it was, in the same order
//    (a pivot rewrites the values of its IN list, and the row limit moved to
//    the end would fall inside a literal left open, so texts with PIVOT or
//    a quote left open are only adapted, not compared);
//  - every single step runs on any text.
//
//   fuzz_dialecto -dict=fuzz/dialecto.dict CORPUS_DIR SEED_DIR

#include "db/DialectoPostgres.h"
#include "db/DialectoSqlite.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace presupuestos;

namespace {

[[noreturn]] void falla(const char* que, const QString& texto)
{
    std::fprintf(stderr, "%s: \"%s\"\n", que, texto.toUtf8().constData());
    std::abort();
}

QStringList literales(const QString& sql)
{
    QStringList l;
    for (const auto& t : DialectoSqlite::tokenizar(sql))
        if (t.tipo == TokenSql::Tipo::Literal)
            l << t.texto;
    return l;
}

// Whether the last token is a quote or a bracketed name that never closes:
// a closed one holds its closing character an odd number of times past the
// opening one (the doubled ones and the last).
bool terminaAbierto(const QString& sql)
{
    const auto tokens = DialectoSqlite::tokenizar(sql);
    if (tokens.empty())
        return false;
    const TokenSql& t = tokens.back();
    switch (t.tipo) {
    case TokenSql::Tipo::Literal: return t.texto.mid(1).count(QLatin1Char('\'')) % 2 == 0;
    case TokenSql::Tipo::Comillas: return t.texto.mid(1).count(QLatin1Char('"')) % 2 == 0;
    case TokenSql::Tipo::Corchetes: return t.texto.mid(1).count(QLatin1Char(']')) % 2 == 0;
    default: return false;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QString sql = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    QString unido;
    for (const auto& t : DialectoSqlite::tokenizar(sql))
        unido += t.texto;
    if (unido != sql)
        falla("los tokens no devuelven el texto", sql);

    const SqlAdaptado a = DialectoSqlite::adaptar(sql);
    if (!sql.contains(QLatin1String("PIVOT"), Qt::CaseInsensitive) && !terminaAbierto(sql)
        && literales(a.texto) != literales(sql))
        falla("un literal ha cambiado", sql);

    const QString postgres = DialectoPostgres::adaptar(sql);
    if (!sql.contains(QLatin1String("PIVOT"), Qt::CaseInsensitive) && !terminaAbierto(sql)
        && literales(postgres) != literales(sql))
        falla("un literal ha cambiado (PostgreSQL)", sql);

    QStringList bases;
    (void)DialectoPostgres::nombres(sql);
    (void)DialectoPostgres::funciones(sql);
    (void)DialectoPostgres::tipos(sql);
    (void)DialectoPostgres::ordenUnion(sql);
    (void)DialectoSqlite::tablasTemporales(sql);
    (void)DialectoSqlite::isNull(sql);
    (void)DialectoSqlite::top(sql);
    (void)DialectoSqlite::truncate(sql);
    (void)DialectoSqlite::nombresTresPartes(sql, &bases);
    (void)DialectoSqlite::asignacionOr(sql);
    (void)DialectoSqlite::pivot(sql);
    return 0;
}
