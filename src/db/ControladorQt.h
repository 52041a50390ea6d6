#pragma once
// Statements run through Qt's driver alone, as an engine reached only
// through ODBC is, and as SQLite runs what its own library's path does not
// take.

#include "db/Controlador.h"

#include <QSqlQuery>
#include <QStringList>

namespace presupuestos {

// Runs an adapted text; raises the system's error.
long ejecutarQt(Conexion& c, const QString& adaptado);
Recordset abrirQt(Conexion& c, const QString& adaptado);

// A command prepared by Qt's driver. monedaExacta: an amount goes as its
// exact decimal text, which SQL Server's MONEY reads to the ten-thousandth
// (Qt's drivers would send a double, which does not hold every amount);
// otherwise as the double SQLite's REAL takes.
class ComandoQt : public ComandoPreparado {
public:
    ComandoQt(Conexion& c, const QString& adaptado, int parametros, bool monedaExacta);
    long ejecutar(const std::vector<ParametroComando>& parametros) override;

private:
    QVariant paraQt(const ParametroComando& p) const;

    Conexion& c_;
    QSqlQuery q_;
    // Names given to the markers of the prepared text, one per parameter;
    // empty when the text's markers are bound by position.
    QStringList marcas_;
    bool monedaExacta_;
};

class ConsultaQt : public ConsultaPreparada {
public:
    ConsultaQt(Conexion& c, QString adaptado) : c_(c), adaptado_(std::move(adaptado)) {}
    Recordset abrir(const std::vector<QVariant>& valores) override;

private:
    Conexion& c_;
    QString adaptado_;
};

} // namespace presupuestos
