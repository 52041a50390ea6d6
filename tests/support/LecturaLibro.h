#pragma once
// The cells of a workbook's active sheet as the import reads them, for
// tests whose own includes (the grid's) cannot sit beside the readers'.

#include <QString>
#include <QStringList>

namespace presupuestos::prueba {

struct LecturaLibro {
    explicit LecturaLibro(const QString& ruta);
    // "A/B" of every row from 2 down to column A's last filled cell.
    QStringList codigos;
    // The number in a cell (0 for anything else).
    double numero(int fila, int columna) const;

private:
    QString ruta_;
};

} // namespace presupuestos::prueba
