#pragma once
// The company object the host hands over. The worksheet reads its code, its
// current fiscal year and the shape of its chart of accounts, and uses its
// rounding and SQL number text.

#include "common/Currency.h"

#include <QString>
#include <memory>
#include <vector>

namespace presupuestos {

class Conexion;

class IEmpresa {
public:
    virtual ~IEmpresa() = default;
    virtual qint16 CodigoEmpresa() const = 0;
    virtual qint16 EjercicioActual() const = 0;
    // Levels of the chart of accounts and digits of an account at a level (from 0).
    virtual int NumeroNiveles() const = 0;
    virtual int DigitosNivel(int nivel) const = 0;
    virtual QString Nombre() const = 0;

    // Rounds to the given decimals (halves to even).
    virtual Currency Redondear(Currency importe, int decimales) const;
    // The amount as SQL Server accepts a numeric literal: point as decimal
    // separator, no grouping, up to four decimals. It takes the currency
    // itself: through a double, large amounts would lose ten-thousandths.
    virtual QString NumeroSQL(Currency importe) const;
};

// A company described by plain values.
class EmpresaFija : public IEmpresa {
public:
    EmpresaFija(qint16 codigo, qint16 ejercicio, std::vector<int> digitos = {1, 2, 3, 4, 8},
                QString nombre = QString());
    qint16 CodigoEmpresa() const override { return codigo_; }
    qint16 EjercicioActual() const override { return ejercicio_; }
    int NumeroNiveles() const override { return static_cast<int>(digitos_.size()); }
    int DigitosNivel(int nivel) const override;
    QString Nombre() const override { return nombre_; }

    void setEjercicioActual(qint16 e) { ejercicio_ = e; }

private:
    qint16 codigo_;
    qint16 ejercicio_;
    std::vector<int> digitos_;
    QString nombre_;
};

// Reads a company from the host's Empresas table.
std::shared_ptr<EmpresaFija> cargarEmpresa(Conexion& conexion, int codigo);

} // namespace presupuestos
