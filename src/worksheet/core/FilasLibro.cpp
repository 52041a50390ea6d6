#include "worksheet/core/FilasLibro.h"

#include "common/VbError.h"
#include "db/Conexion.h"

namespace presupuestos {

std::vector<FilaLibro> filasLibro(Recordset& rs, bool conDatosCalculo)
{
    auto indice = [&rs](const QString& nombre) {
        const int i = rs.indiceCampo(nombre);
        if (i < 0 && !rs.eof())
            throw VbError::itemNotFound();
        return i;
    };
    const int iDpto = indice(QStringLiteral("Dpto")), iDptoNombre = indice(QStringLiteral("Dpto_Nombre"));
    const int iCuenta = indice(QStringLiteral("Cuenta")), iNombre = indice(QStringLiteral("Nombre"));
    int iMes[12];
    for (int m = 0; m < 12; ++m)
        iMes[m] = indice(QStringLiteral("M%1").arg(m + 1));
    int iMetodo = -1, iManual = -1, iValor = -1;
    if (conDatosCalculo) {
        iMetodo = indice(QStringLiteral("Metodo_Calculo"));
        iManual = indice(QStringLiteral("Modificacion_Manual"));
        iValor = indice(QStringLiteral("Valor"));
    }
    std::vector<FilaLibro> filas;
    while (!rs.eof()) {
        FilaLibro f;
        f.dpto = rs.moneda(iDpto).toInt32();
        f.cuenta = rs.texto(iCuenta);
        f.nombre = rs.texto(iNombre);
        f.dptoNombre = rs.texto(iDptoNombre);
        for (int m = 0; m < 12; ++m)
            f.meses[static_cast<std::size_t>(m)] = rs.moneda(iMes[m]);
        if (conDatosCalculo) {
            f.metodo = rs.moneda(iMetodo).toInt32();
            f.manual = rs.moneda(iManual).toInt32();
            f.valor = rs.moneda(iValor);
        }
        filas.push_back(std::move(f));
        rs.MoveNext();
    }
    return filas;
}

} // namespace presupuestos
