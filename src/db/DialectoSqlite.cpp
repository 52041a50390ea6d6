#include "db/DialectoSqlite.h"

#include <QRegularExpression>

namespace presupuestos {

namespace {

const QRegularExpression::PatternOptions CI = QRegularExpression::CaseInsensitiveOption;

// Splits a select list at the commas that are not inside parentheses.
QStringList dividirNivelSuperior(const QString& lista)
{
    QStringList partes;
    int nivel = 0;
    int inicio = 0;
    bool enCadena = false;
    for (int i = 0; i < lista.size(); ++i) {
        const QChar c = lista[i];
        if (c == QLatin1Char('\'')) enCadena = !enCadena;
        if (enCadena) continue;
        if (c == QLatin1Char('(')) ++nivel;
        else if (c == QLatin1Char(')')) --nivel;
        else if (c == QLatin1Char(',') && nivel == 0) {
            partes << lista.mid(inicio, i - inicio).trimmed();
            inicio = i + 1;
        }
    }
    partes << lista.mid(inicio).trimmed();
    return partes;
}

// Index of the FROM that closes a select list, skipping parentheses.
int indiceFromSuperior(const QString& select)
{
    int nivel = 0;
    static const QRegularExpression from(QStringLiteral("\\bFROM\\b"), CI);
    for (int i = 0; i < select.size(); ++i) {
        const QChar c = select[i];
        if (c == QLatin1Char('(')) ++nivel;
        else if (c == QLatin1Char(')')) --nivel;
        else if (nivel == 0) {
            auto m = from.match(select, i, QRegularExpression::NormalMatch, QRegularExpression::AnchorAtOffsetMatchOption);
            if (m.hasMatch())
                return i;
        }
    }
    return -1;
}

QString alias(const QString& item)
{
    static const QRegularExpression as(QStringLiteral("\\bAS\\s+(\\[?[\\w]+\\]?)\\s*$"), CI);
    auto m = as.match(item);
    QString nombre = m.hasMatch() ? m.captured(1) : item.section(QLatin1Char('.'), -1).trimmed();
    if (nombre.startsWith(QLatin1Char('[')) && nombre.endsWith(QLatin1Char(']')))
        nombre = nombre.mid(1, nombre.size() - 2);
    return nombre;
}

} // namespace

QString DialectoSqlite::tablasTemporales(const QString& sql)
{
    static const QRegularExpression crear(QStringLiteral("\\bCREATE\\s+TABLE\\s+(?=##)"), CI);
    static const QRegularExpression nombre(QStringLiteral("(?<![\"\\w])(##[\\w.]*\\w)"));
    QString s = sql;
    s.replace(crear, QStringLiteral("CREATE TEMP TABLE "));
    s.replace(nombre, QStringLiteral("\"\\1\""));
    return s;
}

QString DialectoSqlite::isNull(const QString& sql)
{
    static const QRegularExpression re(QStringLiteral("\\bISNULL\\s*\\("), CI);
    QString s = sql;
    return s.replace(re, QStringLiteral("IFNULL("));
}

QString DialectoSqlite::top(const QString& sql)
{
    static const QRegularExpression re(QStringLiteral("\\bTOP\\s+(\\d+)\\s+"), CI);
    auto m = re.match(sql);
    if (!m.hasMatch())
        return sql;
    QString s = sql;
    const QString n = m.captured(1);
    s.remove(m.capturedStart(), m.capturedLength());
    while (s.endsWith(QLatin1Char(' ')) || s.endsWith(QLatin1Char(';')))
        s.chop(1);
    return s + QStringLiteral(" LIMIT ") + n;
}

QString DialectoSqlite::truncate(const QString& sql)
{
    static const QRegularExpression re(QStringLiteral("^\\s*TRUNCATE\\s+TABLE\\b"), CI);
    QString s = sql;
    return s.replace(re, QStringLiteral("DELETE FROM"));
}

QString DialectoSqlite::nombresTresPartes(const QString& sql, QStringList* basesDatos)
{
    static const QRegularExpression re(QStringLiteral("(\\[[^\\]]+\\]|\\b\\w+)\\.dbo\\."), CI);
    QString s;
    int ultimo = 0;
    auto it = re.globalMatch(sql);
    while (it.hasNext()) {
        auto m = it.next();
        QString bd = m.captured(1);
        if (bd.startsWith(QLatin1Char('[')))
            bd = bd.mid(1, bd.size() - 2);
        if (basesDatos && !basesDatos->contains(bd, Qt::CaseInsensitive))
            basesDatos->append(bd);
        s += sql.mid(ultimo, m.capturedStart() - ultimo);
        s += QLatin1Char('"') + bd + QStringLiteral("\".");
        ultimo = m.capturedEnd();
    }
    s += sql.mid(ultimo);
    return s;
}

QString DialectoSqlite::asignacionOr(const QString& sql)
{
    static const QRegularExpression re(QStringLiteral("(\\b\\w+)\\s*\\|=\\s*"));
    QString s = sql;
    return s.replace(re, QStringLiteral("\\1 = \\1 | "));
}

QString DialectoSqlite::pivot(const QString& sql)
{
    // FROM (<select>) AS <src> PIVOT (<agg>(<value>) FOR <col> IN (<list>)) AS <alias>
    static const QRegularExpression re(
        QStringLiteral("FROM\\s*\\((SELECT\\s.*?)\\)\\s*AS\\s+(\\w+)\\s*PIVOT\\s*\\(\\s*(\\w+)\\s*\\(\\s*(\\w+)\\s*\\)"
                       "\\s+FOR\\s+(\\w+)\\s+IN\\s*\\(([^)]*)\\)\\s*\\)\\s*AS\\s+(\\w+)"),
        CI | QRegularExpression::DotMatchesEverythingOption);
    QString resultado;
    int ultimo = 0;
    auto it = re.globalMatch(sql);
    while (it.hasNext()) {
        auto m = it.next();
        const QString interior = m.captured(1);
        const QString origen = m.captured(2);
        const QString agregado = m.captured(3);
        const QString valor = m.captured(4);
        const QString columna = m.captured(5);
        const QStringList valores = m.captured(6).split(QLatin1Char(','), Qt::SkipEmptyParts);
        const QString destino = m.captured(7);

        const int posFrom = indiceFromSuperior(interior);
        QStringList grupo;
        if (posFrom > 0) {
            static const QRegularExpression select(QStringLiteral("^\\s*SELECT\\s+"), CI);
            QString lista = interior.left(posFrom);
            lista.remove(select);
            for (const QString& item : dividirNivelSuperior(lista)) {
                const QString a = alias(item);
                if (a.compare(columna, Qt::CaseInsensitive) != 0 && a.compare(valor, Qt::CaseInsensitive) != 0)
                    grupo << a;
            }
        }
        QStringList columnas = grupo;
        for (QString v : valores) {
            v = v.trimmed();
            QString nombre = v;
            if (nombre.startsWith(QLatin1Char('[')))
                nombre = nombre.mid(1, nombre.size() - 2);
            bool numero = false;
            nombre.toLongLong(&numero);
            const QString literal = numero ? nombre : QLatin1Char('\'') + nombre + QLatin1Char('\'');
            columnas << QStringLiteral("%1(CASE WHEN %2 = %3 THEN %4 END) AS [%5]")
                            .arg(agregado, columna, literal, valor, nombre);
        }
        QString reemplazo = QStringLiteral("FROM (SELECT ") + columnas.join(QStringLiteral(", ")) + QStringLiteral(" FROM (")
                            + interior + QStringLiteral(") AS ") + origen;
        if (!grupo.isEmpty())
            reemplazo += QStringLiteral(" GROUP BY ") + grupo.join(QStringLiteral(", "));
        reemplazo += QStringLiteral(") AS ") + destino;
        resultado += sql.mid(ultimo, m.capturedStart() - ultimo) + reemplazo;
        ultimo = m.capturedEnd();
    }
    if (ultimo == 0)
        return sql;
    return resultado + sql.mid(ultimo);
}

SqlAdaptado DialectoSqlite::adaptar(const QString& tsql)
{
    SqlAdaptado r;
    QString s = tablasTemporales(tsql);
    s = nombresTresPartes(s, &r.basesDatos);
    s = pivot(s);
    s = isNull(s);
    s = top(s);
    s = truncate(s);
    s = asignacionOr(s);
    r.texto = s;
    return r;
}

} // namespace presupuestos
