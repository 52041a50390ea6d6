#pragma once
// Helpers for composing SQL texts.

#include "common/Currency.h"

#include <QString>

namespace presupuestos {
class Conexion;
}

namespace presupuestos::sql {

// The sentence that opens an engine's error when its disk is full: the
// import tells it apart from a fault of the workbook by it.
inline const QString kDiscoLleno = QStringLiteral("No queda espacio en el disco de la base de datos.");

// Refuses, before it is sent, an amount the connection's engine cannot keep
// to the ten-thousandth: SQLite holds MONEY columns as doubles of units.
void comprobarImporte(const Conexion& conexion, Currency importe);

// A text value to be placed between single quotes: embedded quotes doubled,
// so that a name such as "Bar D'Angelo" cannot break the statement.
inline QString texto(const QString& valor)
{
    QString s = valor;
    return s.replace(QLatin1Char('\''), QStringLiteral("''"));
}

// Appends a whole number as QString::number writes it, without a string
// of its own: the log's texts of a batch are composed by the thousand.
inline void anexarEntero(QString& s, qint64 n)
{
    char16_t cifras[24];
    const bool negativo = n < 0;
    char16_t* inicio = escribirCifras(negativo ? 0ULL - static_cast<unsigned long long>(n) : static_cast<unsigned long long>(n), cifras + 24);
    if (negativo)
        *--inicio = u'-';
    s.append(reinterpret_cast<const QChar*>(inicio), cifras + 24 - inicio);
}

} // namespace presupuestos::sql
