#pragma once
// The floor the benchmarks compare with: SQLite driven through its C API
// alone, with nothing of the project's connection layer in between. It
// registers the same SQL functions the connection registers and opens the
// database with the same settings, so that the engine does the same work
// and only the layers above it are left out of the figure.

#include <sqlite3.h>

#include <QFile>
#include <QFileInfo>
#include <QString>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace presupuestos::medida {

inline double msDesde(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

inline double mediana(std::vector<double> v)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// A figure of this process's /proc/self/status in KiB ("VmRSS:", "VmHWM:").
inline long estadoKib(std::string_view campo)
{
    FILE* f = std::fopen("/proc/self/status", "r");
    if (!f)
        return -1;
    char linea[256];
    long kib = -1;
    while (std::fgets(linea, sizeof linea, f)) {
        if (std::string_view(linea).substr(0, campo.size()) == campo) {
            kib = std::strtol(linea + campo.size(), nullptr, 10);
            break;
        }
    }
    std::fclose(f);
    return kib;
}

// Resident memory of this process in KiB, now and at its peak.
inline long vmRssKib() { return estadoKib("VmRSS:"); }
inline long picoRssKib() { return estadoKib("VmHWM:"); }

// A byte copy of a database as it stands: the main file and, while another
// connection keeps it in WAL mode, its log, which holds the latest commits.
inline void copiarBaseDatos(const QString& origen, const QString& destino)
{
    for (const QString& sufijo : {QString(), QStringLiteral("-wal")}) {
        QFile::remove(destino + sufijo);
        if (QFileInfo::exists(origen + sufijo) && !QFile::copy(origen + sufijo, destino + sufijo)) {
            std::fprintf(stderr, "cannot copy %s\n", qPrintable(origen + sufijo));
            std::exit(1);
        }
    }
    QFile::remove(destino + QStringLiteral("-shm"));
}

namespace detalle {

// The connection's LEN: UTF-16 units without the trailing blanks.
inline void len(sqlite3_context* ctx, int, sqlite3_value** argv)
{
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    const auto* p = sqlite3_value_text(argv[0]);
    const int bytes = sqlite3_value_bytes(argv[0]);
    int unidades = 0;
    int hastaUltimoNoBlanco = 0;
    for (int i = 0; i < bytes; ++i) {
        const unsigned char c = p[i];
        if ((c & 0xC0) == 0x80)
            continue;
        unidades += c >= 0xF0 ? 2 : 1;
        if (c != ' ')
            hastaUltimoNoBlanco = unidades;
    }
    sqlite3_result_int(ctx, hastaUltimoNoBlanco);
}

// The connection's date reading: the first ten characters as yyyy-MM-dd.
inline bool fecha(sqlite3_value* v, int& anio, int& mes)
{
    const auto* t = reinterpret_cast<const char*>(sqlite3_value_text(v));
    if (!t || sqlite3_value_bytes(v) < 10 || t[4] != '-' || t[7] != '-')
        return false;
    auto num = [t](int desde, int n, int& out) {
        out = 0;
        for (int i = desde; i < desde + n; ++i) {
            if (t[i] < '0' || t[i] > '9')
                return false;
            out = out * 10 + (t[i] - '0');
        }
        return true;
    };
    int dia = 0;
    if (!num(0, 4, anio) || !num(5, 2, mes) || !num(8, 2, dia) || mes < 1 || mes > 12 || dia < 1)
        return false;
    static constexpr int dias[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool bisiesto = (anio % 4 == 0 && anio % 100 != 0) || anio % 400 == 0;
    return dia <= dias[mes - 1] + (mes == 2 && bisiesto ? 1 : 0);
}

inline void month(sqlite3_context* ctx, int, sqlite3_value** argv)
{
    int anio, mes;
    if (fecha(argv[0], anio, mes))
        sqlite3_result_int(ctx, mes);
    else
        sqlite3_result_null(ctx);
}

inline void year(sqlite3_context* ctx, int, sqlite3_value** argv)
{
    int anio, mes;
    if (fecha(argv[0], anio, mes))
        sqlite3_result_int(ctx, anio);
    else
        sqlite3_result_null(ctx);
}

} // namespace detalle

class SqliteDesnudo {
public:
    explicit SqliteDesnudo(const QString& fichero)
    {
        if (sqlite3_open_v2(fichero.toUtf8().constData(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr)
            != SQLITE_OK)
            fallar("open");
        const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
        sqlite3_create_function_v2(db_, "LEN", 1, flags, nullptr, detalle::len, nullptr, nullptr, nullptr);
        sqlite3_create_function_v2(db_, "MONTH", 1, flags, nullptr, detalle::month, nullptr, nullptr, nullptr);
        sqlite3_create_function_v2(db_, "YEAR", 1, flags, nullptr, detalle::year, nullptr, nullptr, nullptr);
        // The settings the project's connection opens a file with.
        ejecutar("PRAGMA foreign_keys = ON");
        ejecutar("PRAGMA busy_timeout = 5000");
        ejecutar("PRAGMA journal_mode = WAL");
        ejecutar("PRAGMA synchronous = NORMAL");
    }
    ~SqliteDesnudo() { sqlite3_close_v2(db_); }
    SqliteDesnudo(const SqliteDesnudo&) = delete;
    SqliteDesnudo& operator=(const SqliteDesnudo&) = delete;

    sqlite3* handle() const { return db_; }

    void adjuntar(const QString& nombre, const QString& fichero)
    {
        std::string sql = "ATTACH DATABASE '" + fichero.toStdString() + "' AS \"" + nombre.toStdString() + "\"";
        ejecutar(sql);
    }

    // Prepares, steps to the end reading every column of every row, and
    // finalizes. Returns the rows read.
    long ejecutar(const std::string& sql)
    {
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &st, nullptr) != SQLITE_OK)
            fallar(sql);
        const long filas = pasos(st, sql);
        sqlite3_finalize(st);
        return filas;
    }

    // Steps a prepared statement to the end reading every column, then resets it.
    long pasos(sqlite3_stmt* st, const std::string& sql)
    {
        long filas = 0;
        int rc;
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            ++filas;
            const int n = sqlite3_column_count(st);
            for (int i = 0; i < n; ++i) {
                switch (sqlite3_column_type(st, i)) {
                case SQLITE_INTEGER: suma_ += static_cast<std::uint64_t>(sqlite3_column_int64(st, i)); break;
                case SQLITE_FLOAT: suma_ += static_cast<std::uint64_t>(sqlite3_column_double(st, i)); break;
                case SQLITE_TEXT:
                    sqlite3_column_text(st, i);
                    suma_ += static_cast<std::uint64_t>(sqlite3_column_bytes(st, i));
                    break;
                case SQLITE_BLOB:
                    sqlite3_column_blob(st, i);
                    suma_ += static_cast<std::uint64_t>(sqlite3_column_bytes(st, i));
                    break;
                default: break;
                }
            }
        }
        if (rc != SQLITE_DONE)
            fallar(sql);
        sqlite3_reset(st);
        return filas;
    }

    // What was read, so that no read can be left out by the compiler.
    std::uint64_t suma() const { return suma_; }

    [[noreturn]] void fallar(const std::string& que) const
    {
        std::fprintf(stderr, "sqlite: %s\n  in: %.300s\n", sqlite3_errmsg(db_), que.c_str());
        std::exit(1);
    }

private:
    sqlite3* db_ = nullptr;
    std::uint64_t suma_ = 0;
};

} // namespace presupuestos::medida
