#pragma once
// The small always-on-top tool window in which a calculation method is
// chosen and previewed for the worksheet's current row.

#include <QString>
#include <QWidget>

namespace presupuestos {

class frmOperaciones : public QWidget {
    Q_OBJECT
public:
    explicit frmOperaciones(QWidget* parent = nullptr);

    qint16 Ejercicio() const { return ejercicio_; }
    void setEjercicio(qint16 ejercicio);
    qint16 Decimales() const { return decimales_; }
    void setDecimales(qint16 decimales);
    QString TablaTempHistorico() const { return tablaTempHistorico_; }
    void setTablaTempHistorico(const QString& tabla) { tablaTempHistorico_ = tabla; }

signals:
    void Aplicar();

private:
    qint16 ejercicio_ = 0;
    qint16 decimales_ = 0;
    QString tablaTempHistorico_;
};

} // namespace presupuestos
