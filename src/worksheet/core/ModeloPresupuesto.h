#pragma once
// The budget and history grids' data: typed rows (department, names,
// account, twelve months as currency, method, the hand-typed mask, the
// method's value) and the rows of the department subtotals and the grand
// total, whose sums are numbers kept current by difference. Texts, colours
// and alignment exist only in data(role), for the view; the worksheet reads
// and writes the typed values. A change is announced for its rows only,
// or gathered while announcements are held (a batch) and announced then.

#include "common/Currency.h"
#include "common/NumerosEs.h"
#include "grid/ModeloRejilla.h"

#include <QAbstractTableModel>
#include <QColor>
#include <QHash>
#include <QString>
#include <QStringList>
#include <array>
#include <map>
#include <optional>
#include <vector>

namespace presupuestos {

class ModeloPresupuesto : public QAbstractTableModel {
    Q_OBJECT
public:
    // What the worksheet's settings decide of what is shown.
    struct Aspecto {
        int decimales = 0;
        QString formato = QStringLiteral("#,0");
        QColor manual;     // months typed by hand
        QColor subtotal;   // subtotal rows and the total column
    };

    enum class Tipo : std::uint8_t { Cuenta, Subtotal, TotalGeneral };

    // A row as a load gives it.
    struct Entrada {
        qint16 dpto = 0;
        QString dptoNombre;
        QString cuenta;
        QString nombre;
        // As shown, rounded to the decimals; kSumaFueraDeRango for a month
        // no currency amount can hold.
        std::array<Suma, 12> meses{};
        bool conCalculo = false;   // history rows carry no method, mask or value
        qint32 metodo = 0;
        qint16 manual = 0;
        Currency valor;
    };

    explicit ModeloPresupuesto(QObject* parent = nullptr);

    void setAspecto(const Aspecto& a);
    const Aspecto& aspecto() const { return a_; }
    // The grid's background of cells without a colour of their own, and its header's.
    void setFondos(const QColor& celdas, const QColor& cabecera);
    void setTitulo(int col, const QString& texto);
    QString titulo(int col) const { return titulos_.value(col); }

    // ---- Rows -----------------------------------------------------------------
    // A load: every row goes, the rows added follow without subtotals and
    // are announced at the end (also when the load stops half way).
    // previstas: how many rows the load expects at most (0: unknown); room
    // for them is taken at once, not grown a copy at a time.
    void empezarCarga(std::size_t previstas = 0);
    void agregar(const Entrada& e);
    void terminarCarga();
    // One subtotal row below each run of rows of a department, and a grand
    // total above them all when granTotal.
    void crearTotales(bool granTotal);
    bool totalesCreados() const { return totalesCreados_; }
    bool conGranTotal() const { return granTotal_ >= 0; }
    int filas() const { return static_cast<int>(filas_.size()); }
    Tipo tipo(int fila) const { return filas_[static_cast<std::size_t>(fila)].tipo; }
    bool esCuenta(int fila) const { return fila >= 0 && fila < filas() && tipo(fila) == Tipo::Cuenta; }
    // The account row of an account and department, or -1; by a hash, made
    // when first asked for after a load.
    int fila(const QString& cuenta, qint16 dpto) const;
    // An account row as a load would give it again.
    Entrada entrada(int fila) const;

    // ---- A row's values ---------------------------------------------------------
    const QString& cuenta(int fila) const { return nombres_[filas_[static_cast<std::size_t>(fila)].nombres].first; }
    const QString& nombre(int fila) const { return nombres_[filas_[static_cast<std::size_t>(fila)].nombres].second; }
    qint16 dpto(int fila) const { return filas_[static_cast<std::size_t>(fila)].dpto; }
    const QString& dptoNombre(int fila) const;
    // The department's run of rows the row belongs to (-1: the grand total).
    int grupo(int fila) const { return filas_[static_cast<std::size_t>(fila)].grupo; }
    // Month 1 to 12 as shown; *fuera when it cannot be an amount.
    Suma mes(int fila, int mes, bool* fuera = nullptr) const;
    // The twelve months of a row as mes gives them, summed.
    Suma sumaMeses(int fila) const;
    // The rows from desde to hasta worth measuring in a month (13: the
    // total), as grid rows (model row + 1): every total row and every value
    // out of range go to filas, the account rows' values to extremos.
    void anotarExtremos(int mes, int desde, int hasta, ExtremosColumna& extremos, std::vector<int>& filas) const;
    // The row's total (account rows) or the group's sum (subtotal rows) of a
    // month (1 to 12) or, with mes 13, of the totals.
    Suma valor(int fila, int mes, bool* fuera = nullptr) const;
    qint32 metodo(int fila) const { return filas_[static_cast<std::size_t>(fila)].metodo; }
    int mascara(int fila) const { return filas_[static_cast<std::size_t>(fila)].manual; }
    Currency valorMetodo(int fila) const { return Currency::fromRaw(filas_[static_cast<std::size_t>(fila)].valor); }
    // Whether the row held figures when it was last counted for the
    // completion bars (at its load, or after its last change).
    bool contada(int fila) const { return filas_[static_cast<std::size_t>(fila)].contada; }
    void contar(int fila, bool conValores) { filas_[static_cast<std::size_t>(fila)].contada = conValores; }

    // A group's exact sum of a column (months 1 to 12, 13 the totals) and
    // how many of its terms cannot be amounts: the department of an account
    // row, or with general the grand total (none without one).
    struct SumaGrupo {
        Suma suma = 0;
        int fuera = 0;
    };
    std::optional<SumaGrupo> sumaGrupo(int fila, int mes, bool general) const;

    // ---- Changes -------------------------------------------------------------------
    // A month shown as this amount; the sums follow by the difference.
    void ponerMes(int fila, int mes, Currency valor);
    void ponerMascara(int fila, int mascara);
    // Every month of a row, its method, mask and value, as stored.
    void ponerFila(int fila, const std::array<Currency, 12>& meses, qint32 metodo, int mascara, Currency valor);
    // A cell's text as typed (the editor, or a test): a month takes the
    // amount it reads as (0 when it is none) and shows the text as typed
    // until its amount is set; a subtotal's caption copy and the hidden
    // columns take their text.
    void ponerTexto(int fila, int col, const QString& texto);
    // A cell's own background, over what its row gives it (another user's
    // change marked for a moment); invalid to take it away.
    void marcar(int fila, int col, const QColor& color);
    QColor marca(int fila, int col) const;
    void quitarMarcas();

    // Announcements held (a batch, a load): the rows changed meanwhile are
    // announced when they are released, each run of rows once.
    void retenerAvisos(bool retener);

    // ---- For the view -----------------------------------------------------------
    QString texto(int fila, int col) const;
    QColor fondo(int fila, int col) const;
    // What the row gives the cell, without its mark.
    QColor fondoPropio(int fila, int col) const;
    QColor frente(int fila, int col) const;
    int rowCount(const QModelIndex& padre = QModelIndex()) const override;
    int columnCount(const QModelIndex& padre = QModelIndex()) const override;
    QVariant data(const QModelIndex& i, int rol) const override;
    QVariant headerData(int seccion, Qt::Orientation orientacion, int rol) const override;
    Qt::ItemFlags flags(const QModelIndex& i) const override;
    bool setData(const QModelIndex& i, const QVariant& valor, int rol) override;

    // Terms added to keep sums, for benchmarks: a change adds a few.
    long long terminosSumados() const { return sumados_; }

private:
    struct Fila {
        std::array<std::int64_t, 12> meses{};
        std::int64_t valor = 0;
        // The account and its name, kept once for every department.
        std::uint32_t nombres = 0;
        qint32 metodo = 0;
        std::uint16_t manual = 0;
        std::uint16_t fuera = 0;   // months that cannot be amounts, one bit each
        std::int32_t grupo = -1;   // the department's run of rows
        qint16 dpto = 0;
        Tipo tipo = Tipo::Cuenta;
        bool conCalculo = false;
        bool contada = false;
    };
    struct Grupo {
        QString nombre;
        int primera = 0;   // account rows of the run, before subtotals are placed
        int ultima = 0;
        std::array<Suma, 13> suma{};
        std::array<int, 13> fuera{};
    };
    struct Termino {
        Suma valor = 0;
        int fuera = 0;
    };

    Termino terminoMes(const Fila& f, int m) const;
    Termino terminoTotal(const Fila& f) const;
    void sumar(const Fila& f, int m, const Termino& t, int signo);
    // Columns c1 to c2 of a row changed (every column by default), in
    // what they show (the roles; empty: everything).
    void cambiado(int fila, int c1 = 0, int c2 = -1, const QList<int>& roles = {});
    void cambiadosDelGrupo(const Fila& f, int c1 = 0, int c2 = -1);
    QString textoSuma(Suma suma, int fuera) const;
    void sumarTodo();
    bool quitarMarcas(int fila);
    void anunciarFilas();
    std::uint32_t nombresDe(const QString& cuenta, const QString& nombre);

    Aspecto a_;
    es::FormatoNumerico formato_;
    QColor fondoCeldas_;
    QColor fondoCabecera_;
    QStringList titulos_;
    std::vector<Fila> filas_;
    std::vector<Grupo> grupos_;
    std::vector<int> filaSubtotal_;   // per group, once totals are created
    Grupo general_;
    int granTotal_ = -1;
    bool totalesCreados_ = false;
    mutable QHash<std::pair<QString, qint16>, int> indice_;
    std::vector<std::pair<QString, QString>> nombres_{{QString(), QString()}};
    QHash<QString, std::uint32_t> indiceNombres_;
    bool cargando_ = false;
    mutable bool indexado_ = false;
    QHash<quint64, QString> tecleado_;
    QHash<quint64, QRgb> marcas_;
    bool retenidos_ = false;
    std::vector<int> sucias_;
    long long sumados_ = 0;
};

} // namespace presupuestos
