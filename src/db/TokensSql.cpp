#include "db/TokensSql.h"

namespace presupuestos::tokens {

namespace {

using Tipo = TokenSql::Tipo;

bool caracterPalabra(QChar c)
{
    return c.isLetterOrNumber() || c == QLatin1Char('_') || c == QLatin1Char('@') || c == QLatin1Char('#')
           || c == QLatin1Char('$');
}

bool digitoAscii(QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); }

} // namespace

bool esPalabra(const TokenSql& t, const char* palabra)
{
    return t.tipo == Tipo::Palabra && t.texto.compare(QLatin1String(palabra), Qt::CaseInsensitive) == 0;
}

bool esSigno(const TokenSql& t, const char* signo)
{
    return t.tipo == Tipo::Signo && t.texto == QLatin1String(signo);
}

bool esTemporal(const TokenSql& t)
{
    return t.tipo == Tipo::Palabra && t.texto.size() > 2 && t.texto.startsWith(QLatin1String("##"));
}

// Index of the next (or previous) token that is not blank, or -1.
int siguiente(const Tokens& t, int i)
{
    for (++i; i < static_cast<int>(t.size()); ++i)
        if (t[i].tipo != Tipo::Espacio)
            return i;
    return -1;
}

int anterior(const Tokens& t, int i)
{
    for (--i; i >= 0; --i)
        if (t[i].tipo != Tipo::Espacio)
            return i;
    return -1;
}

bool en(const Tokens& t, int i) { return i >= 0 && i < static_cast<int>(t.size()); }

QString unir(const Tokens& t, int desde, int hasta)
{
    QString s;
    for (int i = desde; i < hasta; ++i)
        s += t[i].texto;
    return s;
}

// The name a bracketed, double-quoted or plain name token stands for.
QString nombre(const TokenSql& t)
{
    if (t.tipo != Tipo::Corchetes && t.tipo != Tipo::Comillas)
        return t.texto;
    const QChar cierre = t.tipo == Tipo::Corchetes ? QLatin1Char(']') : QLatin1Char('"');
    QString interior = t.texto.mid(1);
    if (interior.endsWith(cierre))
        interior.chop(1);
    return interior.replace(QString(2, cierre), QString(cierre));
}

bool esNombre(const TokenSql& t)
{
    return t.tipo == Tipo::Palabra || t.tipo == Tipo::Corchetes || t.tipo == Tipo::Comillas;
}

QString entreComillas(QString nombreBd)
{
    return QLatin1Char('"') + nombreBd.replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QLatin1Char('"');
}

namespace {
// Whether two characters side by side would read as one token.
bool seFunden(QChar a, QChar b)
{
    if (a == QLatin1Char('"') && b == QLatin1Char('"'))
        return true;
    return caracterPalabra(a) && caracterPalabra(b);
}
} // namespace

void poner(Tokens& t, int i, const TokenSql& nuevo)
{
    t[i] = nuevo;
    if (nuevo.texto.isEmpty())
        return;
    if (en(t, i + 1) && !t[i + 1].texto.isEmpty() && seFunden(nuevo.texto.back(), t[i + 1].texto.front()))
        t.insert(t.begin() + i + 1, TokenSql{Tipo::Espacio, QStringLiteral(" ")});
    if (i > 0 && !t[i - 1].texto.isEmpty() && seFunden(t[i - 1].texto.back(), nuevo.texto.front()))
        t.insert(t.begin() + i, TokenSql{Tipo::Espacio, QStringLiteral(" ")});
}

// Replaces tokens [desde, hasta] by one token already in SQLite's terms.
void sustituir(Tokens& t, int desde, int hasta, const QString& texto)
{
    t[desde] = TokenSql{Tipo::Crudo, texto};
    t.erase(t.begin() + desde + 1, t.begin() + hasta + 1);
}

void temporales(Tokens& t)
{
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
        if (!esPalabra(t[i], "CREATE"))
            continue;
        const int tabla = siguiente(t, i);
        if (!en(t, tabla) || !esPalabra(t[tabla], "TABLE"))
            continue;
        const int nombreTabla = siguiente(t, tabla);
        if (!en(t, nombreTabla) || !esTemporal(t[nombreTabla]))
            continue;
        sustituir(t, i, nombreTabla - 1, QStringLiteral("CREATE TEMP TABLE "));
    }
    // SQLite keeps a temporary table in the "temp" schema; the name only has
    // to survive its '#' and the point some stamps carry.
    for (int i = 0; i < static_cast<int>(t.size()); ++i)
        if (esTemporal(t[i]))
            poner(t, i, TokenSql{Tipo::Comillas, entreComillas(t[i].texto)});
}

void tresPartes(Tokens& t, QStringList* basesDatos, const std::function<TokenSql(const QString&)>& base)
{
    for (int i = 0; i + 3 < static_cast<int>(t.size()); ++i) {
        const bool baseConNombre = (t[i].tipo == Tipo::Palabra && !t[i].texto.startsWith(QLatin1Char('#')))
                                   || (t[i].tipo == Tipo::Corchetes && t[i].texto.size() > 2);
        const bool dbo = esPalabra(t[i + 2], "dbo")
                         || (t[i + 2].tipo == Tipo::Corchetes && nombre(t[i + 2]).compare(QLatin1String("dbo"), Qt::CaseInsensitive) == 0);
        if (!baseConNombre || !esSigno(t[i + 1], ".") || !dbo || !esSigno(t[i + 3], "."))
            continue;
        const QString bd = nombre(t[i]);
        if (basesDatos && !basesDatos->contains(bd, Qt::CaseInsensitive))
            basesDatos->append(bd);
        t.erase(t.begin() + i + 2, t.begin() + i + 4);
        poner(t, i, base(bd));
    }
}

void isNull(Tokens& t, const QString& funcion)
{
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
        if (!esPalabra(t[i], "ISNULL"))
            continue;
        const int parentesis = siguiente(t, i);
        if (!en(t, parentesis) || !esSigno(t[parentesis], "("))
            continue;
        // The parenthesis stays a token of its own: the pivot step counts them.
        t[i].texto = funcion;
        t.erase(t.begin() + i + 1, t.begin() + parentesis);
    }
}

void asignacionOr(Tokens& t)
{
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
        if (!esSigno(t[i], "|="))
            continue;
        const int columna = anterior(t, i);
        if (!en(t, columna) || !esNombre(t[columna]))
            continue;
        int fin = i;
        while (en(t, fin + 1) && t[fin + 1].tipo == Tipo::Espacio)
            ++fin;
        const QString c = t[columna].texto;
        sustituir(t, columna, fin, c + QStringLiteral(" = ") + c + QStringLiteral(" | "));
        i = columna;
    }
}

namespace {

// Name under which a select-list item reaches the outer query.
QString alias(const Tokens& t, int desde, int hasta)
{
    // "x", "c.x" and "expr AS x" all end with the name.
    const int ultimo = anterior(t, hasta);
    if (ultimo >= desde && esNombre(t[ultimo]))
        return nombre(t[ultimo]);
    return unir(t, desde, hasta).trimmed();
}

// Grouping columns of a pivot's source: its select list less the pivoted
// column and the aggregated value.
QStringList columnasGrupo(const Tokens& t, int desde, int hasta, const QString& columna, const QString& valor)
{
    const int select = siguiente(t, desde - 1);
    if (!en(t, select) || select >= hasta || !esPalabra(t[select], "SELECT"))
        return {};
    QList<QPair<int, int>> items;
    int nivel = 0;
    int inicio = select + 1;
    bool hayFrom = false;
    for (int i = select + 1; i < hasta; ++i) {
        if (esSigno(t[i], "(")) {
            ++nivel;
        } else if (esSigno(t[i], ")")) {
            --nivel;
        } else if (nivel == 0 && esSigno(t[i], ",")) {
            items.append({inicio, i});
            inicio = i + 1;
        } else if (nivel == 0 && esPalabra(t[i], "FROM")) {
            items.append({inicio, i});
            hayFrom = true;
            break;
        }
    }
    QStringList grupo;
    if (!hayFrom)
        return grupo;
    for (const auto& [a, b] : items) {
        const QString n = alias(t, a, b);
        if (n.compare(columna, Qt::CaseInsensitive) != 0 && n.compare(valor, Qt::CaseInsensitive) != 0)
            grupo << n;
    }
    return grupo;
}

// FROM (<select>) AS <src> PIVOT (<agg>(<value>) FOR <col> IN (<list>)) AS <alias>
// becomes a grouped select of one conditional aggregate per listed value.
bool pivotEn(Tokens& t, int pivot, const Citar& citar)
{
    const int origen = anterior(t, pivot);
    if (!en(t, origen) || t[origen].tipo != Tipo::Palabra)
        return false;
    const int as = anterior(t, origen);
    if (!en(t, as) || !esPalabra(t[as], "AS"))
        return false;
    const int cierre = anterior(t, as);
    if (!en(t, cierre) || !esSigno(t[cierre], ")"))
        return false;
    int apertura = cierre;
    for (int nivel = 0; apertura >= 0; --apertura) {
        if (esSigno(t[apertura], ")"))
            ++nivel;
        else if (esSigno(t[apertura], "(") && --nivel == 0)
            break;
    }
    if (apertura < 0)
        return false;
    const int from = anterior(t, apertura);
    const int select = siguiente(t, apertura);
    if (!en(t, from) || !esPalabra(t[from], "FROM") || !en(t, select) || !esPalabra(t[select], "SELECT"))
        return false;

    // The pivot clause, token by token.
    int i = pivot;
    auto tomar = [&](auto condicion) {
        i = siguiente(t, i);
        return en(t, i) && condicion(t[i]);
    };
    auto signo = [](const char* s) { return [s](const TokenSql& k) { return esSigno(k, s); }; };
    auto palabra = [](const char* s) { return [s](const TokenSql& k) { return esPalabra(k, s); }; };
    auto cualquierPalabra = [](const TokenSql& k) { return k.tipo == Tipo::Palabra; };
    if (!tomar(signo("(")) || !tomar(cualquierPalabra))
        return false;
    const QString agregado = t[i].texto;
    if (!tomar(signo("(")) || !tomar(cualquierPalabra))
        return false;
    const QString valor = t[i].texto;
    if (!tomar(signo(")")) || !tomar(palabra("FOR")) || !tomar(cualquierPalabra))
        return false;
    const QString columna = t[i].texto;
    if (!tomar(palabra("IN")) || !tomar(signo("(")))
        return false;
    QList<QPair<int, int>> valores;
    int inicio = i + 1;
    for (i = inicio; en(t, i) && !esSigno(t[i], ")"); ++i) {
        if (esSigno(t[i], ",")) {
            valores.append({inicio, i});
            inicio = i + 1;
        }
    }
    if (!en(t, i))
        return false;
    valores.append({inicio, i});
    if (!tomar(signo(")")) || !tomar(palabra("AS")) || !tomar(cualquierPalabra))
        return false;
    const QString destino = t[i].texto;
    const int fin = i;

    const QStringList grupo = columnasGrupo(t, apertura + 1, cierre, columna, valor);
    QStringList columnas = grupo;
    for (const auto& [a, b] : valores) {
        const int primero = siguiente(t, a - 1);
        if (primero < a || primero >= b)
            continue;
        const bool unico = anterior(t, b) == primero;
        QString n = unico ? nombre(t[primero]) : unir(t, a, b).trimmed();
        bool numero = false;
        n.toLongLong(&numero);
        QString literal = n;
        if (!numero)
            literal = QLatin1Char('\'') + QString(n).replace(QLatin1Char('\''), QStringLiteral("''")) + QLatin1Char('\'');
        columnas << QStringLiteral("%1(CASE WHEN %2 = %3 THEN %4 END) AS %5")
                        .arg(agregado, columna, literal, valor, citar(n));
    }
    QString reemplazo = QStringLiteral("FROM (SELECT ") + columnas.join(QStringLiteral(", ")) + QStringLiteral(" FROM (")
                        + unir(t, apertura + 1, cierre) + QStringLiteral(") AS ") + t[origen].texto;
    if (!grupo.isEmpty())
        reemplazo += QStringLiteral(" GROUP BY ") + grupo.join(QStringLiteral(", "));
    reemplazo += QStringLiteral(") AS ") + destino;
    sustituir(t, from, fin, reemplazo);
    return true;
}

} // namespace

void pivot(Tokens& t, const Citar& citar)
{
    for (int i = 0; i < static_cast<int>(t.size()); ++i)
        if (esPalabra(t[i], "PIVOT"))
            pivotEn(t, i, citar);
}

// The row limit goes to the end of the statement, where SQLite takes it.
void top(Tokens& t)
{
    for (int i = 0; i + 3 < static_cast<int>(t.size()); ++i) {
        if (!esPalabra(t[i], "TOP") || t[i + 1].tipo != Tipo::Espacio || t[i + 2].tipo != Tipo::Numero
            || t[i + 3].tipo != Tipo::Espacio)
            continue;
        bool entero = true;
        for (QChar c : t[i + 2].texto)
            entero = entero && digitoAscii(c);
        if (!entero)
            continue;
        const QString n = t[i + 2].texto;
        // The blank after the count goes too, unless it is all that keeps
        // the tokens on either side apart ("1-TOP 2 -1" is no comment).
        const bool blancoAntes = i == 0 || t[i - 1].tipo == Tipo::Espacio;
        t.erase(t.begin() + i, t.begin() + i + (blancoAntes ? 4 : 3));
        while (!t.empty() && (t.back().tipo == Tipo::Espacio || esSigno(t.back(), ";")))
            t.pop_back();
        t.push_back(TokenSql{Tipo::Crudo, QStringLiteral(" LIMIT ") + n});
        return;
    }
}

void bloqueo(Tokens& t, bool paraActualizar)
{
    for (int i = 0; i < static_cast<int>(t.size()); ++i) {
        if (!esPalabra(t[i], "WITH"))
            continue;
        const int previo = anterior(t, i);
        const int abre = siguiente(t, i);
        if (!en(t, previo) || !esNombre(t[previo]) || !en(t, abre) || !esSigno(t[abre], "("))
            continue;
        const int cierra = cierreDe(t, abre);
        if (cierra < 0)
            continue;
        // Only lock hints between the parentheses.
        bool pistas = true;
        bool alguna = false;
        for (int k = siguiente(t, abre); pistas && en(t, k) && k < cierra; k = siguiente(t, k)) {
            if (esSigno(t[k], ","))
                continue;
            pistas = esPalabra(t[k], "UPDLOCK") || esPalabra(t[k], "HOLDLOCK") || esPalabra(t[k], "ROWLOCK");
            alguna = true;
        }
        if (!pistas || !alguna)
            continue;
        const int desde = t[i - 1].tipo == Tipo::Espacio ? i - 1 : i;
        t.erase(t.begin() + desde, t.begin() + cierra + 1);
        if (paraActualizar) {
            while (!t.empty() && (t.back().tipo == Tipo::Espacio || esSigno(t.back(), ";")))
                t.pop_back();
            t.push_back(TokenSql{Tipo::Crudo, QStringLiteral(" FOR UPDATE")});
        }
        return;
    }
}

QString numerarMarcas(const QString& texto)
{
    Tokens t = tokenizar(texto);
    int n = 0;
    for (TokenSql& k : t)
        if (k.tipo == Tipo::Signo && k.texto == QLatin1String("?"))
            k = TokenSql{Tipo::Crudo, QStringLiteral("$") + QString::number(++n)};
    return unir(t);
}

QString unir(const Tokens& t) { return unir(t, 0, static_cast<int>(t.size())); }

int cierreDe(const Tokens& t, int i)
{
    int nivel = 0;
    for (; en(t, i); ++i) {
        if (esSigno(t[i], "("))
            ++nivel;
        else if (esSigno(t[i], ")") && --nivel == 0)
            return i;
    }
    return -1;
}

Tokens tokenizar(const QString& s)
{
    Tokens t;
    const int n = s.size();
    int i = 0;
    while (i < n) {
        const int inicio = i;
        const QChar c = s[i];
        const QChar sig = i + 1 < n ? s[i + 1] : QChar();
        Tipo tipo;
        if (c.isSpace()) {
            while (i < n && s[i].isSpace())
                ++i;
            tipo = Tipo::Espacio;
        } else if (c == QLatin1Char('-') && sig == QLatin1Char('-')) {
            while (i < n && s[i] != QLatin1Char('\n'))
                ++i;
            tipo = Tipo::Espacio;
        } else if (c == QLatin1Char('/') && sig == QLatin1Char('*')) {
            const int fin = s.indexOf(QLatin1String("*/"), i + 2);
            i = fin < 0 ? n : fin + 2;
            tipo = Tipo::Espacio;
        } else if (c == QLatin1Char('\'') || c == QLatin1Char('"') || c == QLatin1Char('[')) {
            // A doubled closing character stands for itself; an unclosed
            // quote runs to the end, as the engine would read it.
            const QChar cierre = c == QLatin1Char('[') ? QLatin1Char(']') : c;
            for (++i; i < n; ++i) {
                if (s[i] != cierre)
                    continue;
                if (i + 1 < n && s[i + 1] == cierre) {
                    ++i;
                    continue;
                }
                ++i;
                break;
            }
            tipo = c == QLatin1Char('\'') ? Tipo::Literal : c == QLatin1Char('"') ? Tipo::Comillas : Tipo::Corchetes;
        } else if (digitoAscii(c) || (c == QLatin1Char('.') && digitoAscii(sig))) {
            auto digitos = [&] {
                while (i < n && digitoAscii(s[i]))
                    ++i;
            };
            digitos();
            if (i < n && s[i] == QLatin1Char('.')) {
                ++i;
                digitos();
            }
            if (i + 1 < n && (s[i] == QLatin1Char('e') || s[i] == QLatin1Char('E'))) {
                int j = i + 1;
                if (j < n && (s[j] == QLatin1Char('+') || s[j] == QLatin1Char('-')))
                    ++j;
                if (j < n && digitoAscii(s[j])) {
                    i = j;
                    digitos();
                }
            }
            tipo = Tipo::Numero;
        } else if (caracterPalabra(c)) {
            while (i < n && caracterPalabra(s[i]))
                ++i;
            // A temporary table's name may carry the point of its time stamp
            // ("##PresupFiltroCuentas_4523.5").
            if (QStringView(s).mid(inicio, 2) == u"##") {
                for (;;) {
                    int j = i;
                    while (j < n && s[j] == QLatin1Char('.'))
                        ++j;
                    if (j == i || j >= n || !caracterPalabra(s[j]))
                        break;
                    i = j;
                    while (i < n && caracterPalabra(s[i]))
                        ++i;
                }
            }
            tipo = Tipo::Palabra;
        } else {
            i += c == QLatin1Char('|') && sig == QLatin1Char('=') ? 2 : 1;
            tipo = Tipo::Signo;
        }
        t.push_back(TokenSql{tipo, s.mid(inicio, i - inicio)});
    }
    return t;
}

} // namespace presupuestos::tokens
