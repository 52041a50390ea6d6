#pragma once
// "Historial de la celda": the journal's lines for the current cell, newest
// first, with a button to see every change of its row.

#include "store/Diario.h"

#include <QDialog>

class QLabel;
class QPushButton;
class QTableWidget;

namespace presupuestos {

class dlgHistorial : public QDialog {
    Q_OBJECT
public:
    dlgHistorial(const Diario& diario, QString cuenta, qint16 dpto, qint16 ejercicio, int mes, QString formato,
                 QWidget* parent = nullptr);

    QTableWidget* tabla() const { return tabla_; }
    QPushButton* botonFila() const { return fila_; }
    QLabel* aviso() const { return aviso_; }
    // Shows every change of the row instead of the cell's alone.
    void mostrarFila();

private:
    void llenar(int mes);

    std::vector<Diario::Entrada> entradas_;
    QString formato_;
    QLabel* titulo_;
    QLabel* aviso_;
    QTableWidget* tabla_;
    QPushButton* fila_;
    QString cuenta_;
    qint16 dpto_;
};

} // namespace presupuestos
