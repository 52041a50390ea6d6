#pragma once
// The SQLite floor of the worksheet's benchmarks: what SQLite ran on the
// project's connection during an operation, seen through its trace hook,
// run again through the C API alone on a copy of the databases (and of the
// connection's temporary tables) as they stood before the operation.
//
// The floor does the engine's share of the program's work, no more and no
// less. Every statement object the program prepared is prepared once here
// too, where the program prepared it: one it prepared before the operation
// (a store's command, a shape cached earlier) is prepared before the clock
// starts; one it ran again with new values is bound again, not prepared
// again; one it prepared for a single run (a query, a text without values)
// is prepared, run and finalized each time, as the program did. The values
// bound are the program's, read back from SQLite's expansion of each run,
// and checked by expanding the floor's own statements in a pass of its own.
// Every column of every row is read. What it leaves out is the program's
// own: composing the texts, finding their shapes, the grid, the journal's
// bookkeeping.

#include "SqliteDesnudo.h"
#include "db/Conexion.h"

#include <QSqlDriver>
#include <sqlite3.h>

#include <QDir>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace presupuestos::medida {

// One run of a statement of the program's.
struct Ejecucion {
    // One statement object of the program's, from its prepare to its finalize.
    int ranura;
    // Its first run: the program prepared it for this one.
    bool nueva;
    // With the values bound, when it has parameters; empty otherwise.
    std::string expandida;
};

// What SQLite ran on a connection, in order.
struct Traza {
    std::vector<Ejecucion> ejecuciones;
    // The text each statement object was prepared with (its "?" markers kept).
    std::vector<std::string> plantillas;
    std::unordered_map<const sqlite3_stmt*, int> ranuraActual;
};

namespace detalle {

inline int alTrazar(unsigned tipo, void* contexto, void* p, void* x)
{
    const auto* texto = static_cast<const char*>(x);
    // Trigger programs are reported as comments: they belong to their statement.
    if (tipo != SQLITE_TRACE_STMT || (texto && texto[0] == '-' && texto[1] == '-'))
        return 0;
    auto* st = static_cast<sqlite3_stmt*>(p);
    auto* traza = static_cast<Traza*>(contexto);
    // Runs before this one: none means a statement object prepared anew
    // (SQLite may give a new one the address of one finalized before).
    const bool nueva = sqlite3_stmt_status(st, SQLITE_STMTSTATUS_RUN, 0) == 0;
    auto it = traza->ranuraActual.find(st);
    if (nueva || it == traza->ranuraActual.end()) {
        const int ranura = static_cast<int>(traza->plantillas.size());
        traza->plantillas.emplace_back(sqlite3_sql(st));
        it = traza->ranuraActual.insert_or_assign(st, ranura).first;
    }
    Ejecucion e{it->second, nueva, {}};
    if (sqlite3_bind_parameter_count(st) > 0) {
        char* expandida = sqlite3_expanded_sql(st);
        e.expandida = expandida ? expandida : "";
        sqlite3_free(expandida);
    }
    traza->ejecuciones.push_back(std::move(e));
    return 0;
}

} // namespace detalle

inline void trazar(Conexion& c, Traza* traza)
{
    // The handle under Qt's driver, where the connection runs its statements.
    sqlite3* db = *static_cast<sqlite3* const*>(c.baseDatos().driver()->handle().data());
    // While the hook was off, statements were finalized and others may have
    // taken their addresses: what it knew of them no longer holds.
    if (traza)
        traza->ranuraActual.clear();
    sqlite3_trace_v2(db, SQLITE_TRACE_STMT, traza ? detalle::alTrazar : nullptr, traza);
}

// A value bound to a statement, as SQLite's expansion writes it.
struct Valor {
    enum class Tipo { Nulo, Entero, Real, Texto, Blob };
    Tipo tipo = Tipo::Nulo;
    std::int64_t entero = 0;
    double real = 0;
    std::string bytes;
};

// The values of a run, read from its expansion against the statement's text:
// the expansion copies the text and writes each marker ("?", "?NNN", or a
// name such as Qt's ":0") as its value (NULL, an integer, a real with a
// point or an exponent, a quoted text, x'..' for a blob). False when the
// two do not line up.
inline bool leerValores(const std::string& plantilla, const std::string& expandida, std::vector<Valor>& valores)
{
    valores.clear();
    std::size_t i = 0, j = 0;
    int siguiente = 1;
    std::vector<std::string> nombres;
    const auto esNombre = [](char d) { return (d >= '0' && d <= '9') || (d >= 'A' && d <= 'Z') || (d >= 'a' && d <= 'z') || d == '_'; };
    const auto igual = [&](std::size_t n) {
        if (expandida.compare(j, n, plantilla, i, n) != 0)
            return false;
        i += n;
        j += n;
        return true;
    };
    while (i < plantilla.size()) {
        const char c = plantilla[i];
        if (c == '\'' || c == '"' || c == '`' || c == '[') {
            const char cierre = c == '[' ? ']' : c;
            std::size_t k = i + 1;
            for (;; ++k) {
                if (k >= plantilla.size())
                    return false;
                if (plantilla[k] == cierre) {
                    if (cierre != ']' && k + 1 < plantilla.size() && plantilla[k + 1] == cierre) {
                        ++k;
                        continue;
                    }
                    break;
                }
            }
            if (!igual(k + 1 - i))
                return false;
            continue;
        }
        if (c == '-' && i + 1 < plantilla.size() && plantilla[i + 1] == '-') {
            const std::size_t fin = plantilla.find('\n', i);
            if (!igual((fin == std::string::npos ? plantilla.size() : fin) - i))
                return false;
            continue;
        }
        if (c == '/' && i + 1 < plantilla.size() && plantilla[i + 1] == '*') {
            const std::size_t fin = plantilla.find("*/", i + 2);
            if (fin == std::string::npos || !igual(fin + 2 - i))
                return false;
            continue;
        }
        const bool nombrado = (c == ':' || c == '@' || c == '$') && i + 1 < plantilla.size() && esNombre(plantilla[i + 1]);
        if (c != '?' && !nombrado) {
            if (j >= expandida.size() || expandida[j] != c)
                return false;
            ++i;
            ++j;
            continue;
        }
        // A marker: "?" takes the next index, "?NNN" its own, a name the
        // next one the first time it appears and the same one after.
        int indice = siguiente;
        if (nombrado) {
            std::size_t k = i + 1;
            while (k < plantilla.size() && esNombre(plantilla[k]))
                ++k;
            const std::string nombre = plantilla.substr(i, k - i);
            i = k;
            const auto it = std::find(nombres.begin(), nombres.end(), nombre);
            if (it != nombres.end()) {
                indice = static_cast<int>(it - nombres.begin()) + 1;
            } else {
                nombres.resize(static_cast<std::size_t>(indice));
                nombres.back() = nombre;
            }
        } else {
            ++i;
            if (i < plantilla.size() && plantilla[i] >= '0' && plantilla[i] <= '9') {
                indice = 0;
                while (i < plantilla.size() && plantilla[i] >= '0' && plantilla[i] <= '9')
                    indice = indice * 10 + (plantilla[i++] - '0');
            }
        }
        siguiente = std::max(siguiente, indice + 1);
        if (valores.size() < static_cast<std::size_t>(indice))
            valores.resize(static_cast<std::size_t>(indice));
        Valor& v = valores[static_cast<std::size_t>(indice - 1)];
        if (expandida.compare(j, 4, "NULL") == 0) {
            v.tipo = Valor::Tipo::Nulo;
            j += 4;
        } else if (expandida[j] == '\'') {
            v.tipo = Valor::Tipo::Texto;
            for (++j;; ++j) {
                if (j >= expandida.size())
                    return false;
                if (expandida[j] == '\'') {
                    if (j + 1 < expandida.size() && expandida[j + 1] == '\'') {
                        v.bytes += '\'';
                        ++j;
                        continue;
                    }
                    ++j;
                    break;
                }
                v.bytes += expandida[j];
            }
        } else if (expandida.compare(j, 2, "x'") == 0) {
            v.tipo = Valor::Tipo::Blob;
            const std::size_t fin = expandida.find('\'', j + 2);
            if (fin == std::string::npos)
                return false;
            for (std::size_t k = j + 2; k + 1 < fin; k += 2)
                v.bytes += static_cast<char>(std::stoi(expandida.substr(k, 2), nullptr, 16));
            j = fin + 1;
        } else {
            std::size_t k = j;
            bool real = false;
            if (k < expandida.size() && expandida[k] == '-')
                ++k;
            if (expandida.compare(k, 3, "Inf") == 0 || expandida.compare(k, 3, "NaN") == 0) {
                k += 3;
                real = true;
            }
            for (; k < expandida.size(); ++k) {
                const char d = expandida[k];
                if (d >= '0' && d <= '9')
                    continue;
                if (d == '.' || d == 'e' || d == 'E') {
                    real = true;
                    continue;
                }
                if ((d == '+' || d == '-') && (expandida[k - 1] == 'e' || expandida[k - 1] == 'E'))
                    continue;
                break;
            }
            if (k == j)
                return false;
            const std::string numero = expandida.substr(j, k - j);
            if (real) {
                v.tipo = Valor::Tipo::Real;
                v.real = std::strtod(numero.c_str(), nullptr);
            } else {
                v.tipo = Valor::Tipo::Entero;
                v.entero = std::strtoll(numero.c_str(), nullptr, 10);
            }
            j = k;
        }
    }
    return j == expandida.size();
}

// The runs of an operation made ready for the floor: values read, and for
// each statement object whether the program had prepared it before the
// operation and whether it finalized it within.
class Reproduccion {
public:
    Reproduccion(const Traza& traza, std::size_t desde, std::size_t hasta)
        : traza_(traza), desde_(desde), hasta_(hasta), valores_(hasta - desde)
    {
        std::unordered_map<int, std::size_t> primera, ultima, usos;
        for (std::size_t i = desde; i < hasta; ++i) {
            const Ejecucion& e = traza.ejecuciones[i];
            primera.try_emplace(e.ranura, i);
            ultima[e.ranura] = i;
            ++usos[e.ranura];
            if (!e.expandida.empty()) {
                ++conValores_;
                if (!leerValores(traza.plantillas[static_cast<std::size_t>(e.ranura)], e.expandida, valores_[i - desde]))
                    ++ilegibles_;
            }
        }
        for (const auto& [ranura, i] : primera) {
            if (!traza.ejecuciones[i].nueva)
                previas_.push_back(ranura);
            ++preparadas_;
        }
        // A statement object the program prepared for one run is done with
        // after it (a query, a text without values); one it runs again stays.
        for (const auto& [ranura, i] : ultima)
            if (traza.ejecuciones[i].nueva && usos[ranura] == 1)
                finalizarTras_.push_back(i);
        std::sort(finalizarTras_.begin(), finalizarTras_.end());
    }

    // Statements the floor prepares (as many as the program's statement
    // objects the operation ran), runs in all, runs with values bound, and
    // whose values could not be read back from the program's run.
    std::size_t preparadas() const { return preparadas_; }
    std::size_t ejecuciones() const { return hasta_ - desde_; }
    std::size_t conValores() const { return conValores_; }
    std::size_t ilegibles() const { return ilegibles_; }
    std::size_t desde() const { return desde_; }
    std::size_t hasta() const { return hasta_; }
    bool conValores(std::size_t i) const { return !traza_.ejecuciones[i].expandida.empty(); }

    // The runs, as the program's text of each (expanded when bound).
    std::string texto(std::size_t i) const
    {
        const Ejecucion& e = traza_.ejecuciones[i];
        return e.expandida.empty() ? traza_.plantillas[static_cast<std::size_t>(e.ranura)] : e.expandida;
    }

    // One pass of the runs over a database.
    class Pasada {
    public:
        Pasada(const Reproduccion& r, SqliteDesnudo& db) : r_(r), db_(db), sentencias_(r.traza_.plantillas.size(), nullptr)
        {
            // Prepared by the program before the operation: not the floor's to time.
            for (int ranura : r_.previas_)
                preparar(ranura);
        }
        ~Pasada()
        {
            for (sqlite3_stmt* st : sentencias_)
                sqlite3_finalize(st);
        }
        Pasada(const Pasada&) = delete;
        Pasada& operator=(const Pasada&) = delete;

        // Runs [desde, hasta) of the operation's runs.
        void ejecutar(std::size_t desde, std::size_t hasta)
        {
            for (std::size_t i = desde; i < hasta; ++i)
                ejecutar(i);
        }

        // With comprobar, each bound statement is expanded and compared with
        // the program's run (untimed passes only): the differences counted.
        void setComprobar(bool c) { comprobar_ = c; }
        std::size_t diferencias() const { return diferencias_; }

    private:
        void preparar(int ranura)
        {
            sqlite3_stmt*& st = sentencias_[static_cast<std::size_t>(ranura)];
            sqlite3_finalize(st);
            st = nullptr;
            const std::string& sql = r_.traza_.plantillas[static_cast<std::size_t>(ranura)];
            if (sqlite3_prepare_v2(db_.handle(), sql.data(), static_cast<int>(sql.size()), &st, nullptr) != SQLITE_OK)
                db_.fallar(sql);
        }

        void ejecutar(std::size_t i)
        {
            const Ejecucion& e = r_.traza_.ejecuciones[i];
            if (e.nueva)
                preparar(e.ranura);
            sqlite3_stmt* st = sentencias_[static_cast<std::size_t>(e.ranura)];
            const std::vector<Valor>& valores = r_.valores_[i - r_.desde_];
            for (std::size_t k = 0; k < valores.size(); ++k) {
                const Valor& v = valores[k];
                const int n = static_cast<int>(k + 1);
                switch (v.tipo) {
                case Valor::Tipo::Nulo: sqlite3_bind_null(st, n); break;
                case Valor::Tipo::Entero: sqlite3_bind_int64(st, n, v.entero); break;
                case Valor::Tipo::Real: sqlite3_bind_double(st, n, v.real); break;
                case Valor::Tipo::Texto:
                    sqlite3_bind_text(st, n, v.bytes.data(), static_cast<int>(v.bytes.size()), SQLITE_STATIC);
                    break;
                case Valor::Tipo::Blob:
                    sqlite3_bind_blob(st, n, v.bytes.data(), static_cast<int>(v.bytes.size()), SQLITE_STATIC);
                    break;
                }
            }
            if (comprobar_ && !e.expandida.empty()) {
                char* propia = sqlite3_expanded_sql(st);
                if (!propia || e.expandida != propia)
                    ++diferencias_;
                sqlite3_free(propia);
            }
            db_.pasos(st, e.expandida);
            while (siguienteFinal_ < r_.finalizarTras_.size() && r_.finalizarTras_[siguienteFinal_] < i)
                ++siguienteFinal_;
            if (siguienteFinal_ < r_.finalizarTras_.size() && r_.finalizarTras_[siguienteFinal_] == i) {
                sqlite3_finalize(st);
                sentencias_[static_cast<std::size_t>(e.ranura)] = nullptr;
            }
        }

        const Reproduccion& r_;
        SqliteDesnudo& db_;
        std::vector<sqlite3_stmt*> sentencias_;
        std::size_t siguienteFinal_ = 0;
        bool comprobar_ = false;
        std::size_t diferencias_ = 0;
    };

private:
    const Traza& traza_;
    std::size_t desde_;
    std::size_t hasta_;
    std::vector<std::vector<Valor>> valores_;
    std::vector<int> previas_;
    std::vector<std::size_t> finalizarTras_;
    std::size_t preparadas_ = 0;
    std::size_t conValores_ = 0;
    std::size_t ilegibles_ = 0;
};

// ---- Copies of the company as it stood before an operation -------------

// The temporary objects of the project's connection (the filter tables the
// worksheet creates when it opens) as they stand now: their definitions,
// and their rows saved to a file beside the copy.
struct Temporales {
    QString volcado;
    std::vector<std::string> definiciones;
    std::vector<std::string> tablas;
};

inline std::string comoTemporal(QString sql)
{
    for (const char* tipo : {"TABLE", "VIEW", "TRIGGER"}) {
        const QString prefijo = QStringLiteral("CREATE %1").arg(QLatin1String(tipo));
        if (sql.startsWith(prefijo, Qt::CaseInsensitive))
            return (QStringLiteral("CREATE TEMP %1").arg(QLatin1String(tipo)) + sql.mid(prefijo.size())).toStdString();
    }
    return sql.toStdString();
}

inline QString citado(const QString& nombre)
{
    return QLatin1Char('"') + QString(nombre).replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QLatin1Char('"');
}

inline Temporales volcarTemporales(Conexion& c, const QString& volcado)
{
    Temporales t;
    t.volcado = volcado;
    QSqlQuery q(c.baseDatos());
    auto exec = [&q](const QString& sql) {
        if (!q.exec(sql))
            qFatal("%s: %s", qPrintable(sql), qPrintable(q.lastError().text()));
    };
    exec(QStringLiteral("SELECT type, name, sql FROM sqlite_temp_master WHERE sql IS NOT NULL "
                        "ORDER BY CASE type WHEN 'table' THEN 0 WHEN 'index' THEN 1 ELSE 2 END"));
    QStringList tablas;
    while (q.next()) {
        t.definiciones.push_back(comoTemporal(q.value(2).toString()));
        if (q.value(0).toString() == QLatin1String("table"))
            tablas << q.value(1).toString();
    }
    q.finish();
    exec(QStringLiteral("ATTACH DATABASE '%1' AS volcado").arg(QString(volcado).replace(QLatin1Char('\''), QStringLiteral("''"))));
    for (const QString& tabla : tablas) {
        exec(QStringLiteral("CREATE TABLE volcado.%1 AS SELECT * FROM temp.%1").arg(citado(tabla)));
        t.tablas.push_back(citado(tabla).toStdString());
    }
    exec(QStringLiteral("DETACH DATABASE volcado"));
    return t;
}

// A copy of the company's two databases as they stand now, for running an
// operation again from the state it started in.
struct Copia {
    QString fichero;
    Temporales temporales;
};

inline Copia copiarEmpresa(Conexion& c, const QString& fichero, const QString& carpeta)
{
    QDir().mkpath(carpeta);
    const QDir origen = QFileInfo(fichero).absoluteDir();
    const QString copia = carpeta + QStringLiteral("/") + QFileInfo(fichero).fileName();
    copiarBaseDatos(fichero, copia);
    copiarBaseDatos(origen.filePath(QStringLiteral("Pelvor.db")), carpeta + QStringLiteral("/Pelvor.db"));
    return {copia, volcarTemporales(c, carpeta + QStringLiteral("/temporales.db"))};
}

// Opens a copy as the project's connection stood: functions, settings, the
// retail database attached and the temporary tables with their rows.
inline std::unique_ptr<SqliteDesnudo> abrirCopia(const Copia& copia)
{
    auto db = std::make_unique<SqliteDesnudo>(copia.fichero);
    db->adjuntar(QStringLiteral("Pelvor"), QFileInfo(copia.fichero).absoluteDir().filePath(QStringLiteral("Pelvor.db")));
    for (const std::string& sql : copia.temporales.definiciones)
        db->ejecutar(sql);
    db->adjuntar(QStringLiteral("volcado"), copia.temporales.volcado);
    for (const std::string& tabla : copia.temporales.tablas)
        db->ejecutar("INSERT INTO temp." + tabla + " SELECT * FROM volcado." + tabla);
    db->ejecutar("DETACH DATABASE volcado");
    return db;
}

// Copies made before an operation, one for each run of its floor.
inline std::vector<Copia> copiasPrevias(Conexion& c, const QString& fichero, const QString& base, int veces)
{
    std::vector<Copia> copias;
    for (int i = 0; i < veces; ++i)
        copias.push_back(copiarEmpresa(c, fichero, base + QString::number(i)));
    return copias;
}

// The floor of an operation: its runs on each copy but the last, the median
// of their times; the last copy is the untimed pass that checks the values
// bound against the program's.
struct Suelo {
    double ms = 0;
    std::size_t diferencias = 0;
};

// One timed run of an operation's floor on a copy (statements the program
// had prepared before the operation are prepared before the clock).
inline double sueloEn(const Copia& copia, const Reproduccion& r)
{
    auto db = abrirCopia(copia);
    Reproduccion::Pasada pasada(r, *db);
    const auto t0 = std::chrono::steady_clock::now();
    pasada.ejecutar(r.desde(), r.hasta());
    return msDesde(t0);
}

// The untimed pass on a copy that checks the values bound against the
// program's: how many runs differ.
inline std::size_t comprobarEn(const Copia& copia, const Reproduccion& r)
{
    auto db = abrirCopia(copia);
    Reproduccion::Pasada pasada(r, *db);
    pasada.setComprobar(true);
    pasada.ejecutar(r.desde(), r.hasta());
    return pasada.diferencias();
}

inline Suelo sueloMediano(const std::vector<Copia>& copias, const Reproduccion& r)
{
    Suelo s;
    std::vector<double> tiempos;
    const std::size_t cronometradas = copias.size() > 1 ? copias.size() - 1 : copias.size();
    for (std::size_t k = 0; k < cronometradas; ++k)
        tiempos.push_back(sueloEn(copias[k], r));
    if (copias.size() > 1)
        s.diferencias = comprobarEn(copias.back(), r);
    s.ms = mediana(tiempos);
    return s;
}

// What a floor ran, for its line of output.
inline QString queEjecuta(const Reproduccion& r, std::size_t diferencias)
{
    QString t = QStringLiteral("el suelo prepara %1 sentencias, como el programa, y las ejecuta %2 veces, %3 de ellas con valores enlazados")
                    .arg(r.preparadas())
                    .arg(r.ejecuciones())
                    .arg(r.conValores());
    if (r.ilegibles())
        t += QStringLiteral(", %1 con valores ILEGIBLES").arg(r.ilegibles());
    if (r.conValores())
        t += diferencias ? QStringLiteral(", %1 con valores DISTINTOS de los del programa").arg(diferencias)
                         : QStringLiteral(", todos iguales a los del programa");
    return t;
}

} // namespace presupuestos::medida
