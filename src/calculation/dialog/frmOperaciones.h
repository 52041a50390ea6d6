#pragma once
// The small always-on-top tool window in which the user picks a
// calculation method and a value for the worksheet's current row, sees the
// twelve months it would produce and the formula behind them, and applies
// it. It follows the worksheet's current row while it is open.

#include "calculation/AmbitoMetodo.h"
#include "calculation/clsCalculo.h"
#include "common/Currency.h"

#include <QString>
#include <QWidget>
#include <array>
#include <memory>

class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace presupuestos {

class VistaRejilla;

class frmOperaciones : public QWidget {
    Q_OBJECT
public:
    // The session its calculation engine reads the database through.
    explicit frmOperaciones(const Sesion& sesion, QWidget* parent = nullptr);
    ~frmOperaciones() override;

    void Clear();

    qint16 Dpto() const { return dpto_; }
    void setDpto(qint16 v);
    QString Dpto_Nombre() const { return dptoNombre_; }
    void setDpto_Nombre(const QString& v);
    QString Cuenta() const { return cuenta_; }
    void setCuenta(const QString& v);
    QString Cuenta_Nombre() const { return cuentaNombre_; }
    void setCuenta_Nombre(const QString& v);
    Currency Valor() const { return valor_; }
    void setValor(Currency v);
    qint32 MetodoCalculo() const { return metodo_; }
    void setMetodoCalculo(qint32 v);
    Currency Mes(int Index) const;
    void setMes(int Index, Currency v);
    qint16 Ejercicio() const { return ejercicio_; }
    void setEjercicio(qint16 v);
    qint16 Decimales() const { return decimales_; }
    void setDecimales(qint16 v);
    QString TablaTempHistorico() const { return tablaTempHistorico_; }
    void setTablaTempHistorico(const QString& v);

    // Which rows Aplicar reaches; the current row unless the user chose more.
    AmbitoMetodo Ambito() const;
    // What the worksheet says the chosen rows are and what applying would
    // overwrite there; shown only while the scope is more than the row.
    void setPrevisionLote(const QString& texto);

    void ActualizarEstadoOperaciones();
    void CalcularVistaPrevia();
    void cboMetodo_Click();
    void cmdAplicar_Click();
    void lblVerCalculo_Click();
    void txtValor_KeyPress(int keyAscii);

    clsCalculo& motor() { return *motor_; }

    QComboBox* cboMetodo = nullptr;
    QLineEdit* txtValor = nullptr;
    VistaRejilla* vsResultado = nullptr;
    QLabel* lblCuenta = nullptr;
    QLabel* lblDpto = nullptr;
    QLabel* lblVerCalculo = nullptr;
    QPlainTextEdit* txtConsole = nullptr;
    QPushButton* cmdAplicar = nullptr;
    QPushButton* cmdActualizar = nullptr;
    QComboBox* cboAmbito = nullptr;
    QLabel* lblAmbito = nullptr;

    // Heights of the window, in twips, without and with the formula text.
    static constexpr int AltoReducido = 3600;
    static constexpr int AltoAmpliado = 5280;

signals:
    void Aplicar();
    // The user chose another scope: the worksheet tells what it reaches.
    void AmbitoCambiado();

protected:
    void closeEvent(QCloseEvent* e) override;
    void showEvent(QShowEvent* e) override;
    bool eventFilter(QObject* objeto, QEvent* e) override;
    void resizeEvent(QResizeEvent* e) override;

private:
    void actualizarEtiquetas();
    void disenarResultado();
    // Room for the header and both rows, and for the widest text in each of
    // the six equal columns.
    void ajustarResultado();
    void repartirColumnas();
    Currency valorCaja() const;
    QString formato() const;

    std::unique_ptr<clsCalculo> motor_;
    qint16 ejercicio_ = 0;
    qint16 dpto_ = 0;
    QString dptoNombre_;
    QString cuenta_;
    QString cuentaNombre_;
    Currency valor_;
    qint32 metodo_ = 0;
    std::array<Currency, 12> mes_{};
    qint16 decimales_ = 0;
    QString tablaTempHistorico_;
};

} // namespace presupuestos
