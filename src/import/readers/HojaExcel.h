#pragma once
// One worksheet as the import reads it: the values of its cells by row and
// column (both from 1, as Excel's Cells counts them), the text Excel would
// show for them, and the End(xlUp) rule that finds where a column's data
// ends. Both readers (.xlsx and .xls) fill one of these; nothing here knows
// about files.

#include "common/Currency.h"

#include <QString>
#include <cstdint>
#include <vector>

namespace presupuestos {

// A cell's Value: empty, a number (workbooks keep doubles), a text, a
// Boolean or an error such as "#DIV/0!".
struct ValorExcel {
    enum class Tipo : std::uint8_t { Vacia, Numero, Texto, Booleano, Error };
    Tipo tipo = Tipo::Vacia;
    double numero = 0;
    bool booleano = false;
    QString texto; // the text, or the error's name

    bool vacia() const { return tipo == Tipo::Vacia; }
};

class HojaExcel {
public:
    // Rows.Count and Columns.Count of the format: 1,048,576 x 16,384 for
    // .xlsx, 65,536 x 256 for .xls.
    HojaExcel(int filasHoja, int columnasHoja, QString nombre = QString());

    QString nombre() const { return nombre_; }
    int filasHoja() const { return filasHoja_; }
    int columnasHoja() const { return columnasHoja_; }
    std::size_t numeroCeldas() const { return celdas_.size(); }

    // ---- Filling (readers) -----------------------------------------------------
    // Cells may come in any order; a later value for the same cell wins.
    // Empty values are not stored. Row and column must be inside the sheet.
    void ponerNumero(int fila, int columna, double valor);
    void ponerTexto(int fila, int columna, const QString& texto);
    // A text from the workbook's table of shared texts, by its index there;
    // false when the table has no such text.
    bool ponerTextoCompartido(int fila, int columna, std::uint32_t indice);
    void ponerBooleano(int fila, int columna, bool valor);
    void ponerError(int fila, int columna, const QString& nombreError);
    // The workbook's table of shared texts; before any other text.
    void ponerTextos(std::vector<QString> textos);
    // Room for this many cells, when the reader has an idea.
    void reservar(std::size_t celdas) { celdas_.reserve(celdas); }
    // Orders the cells for lookup; readers call it once when done.
    void cerrar();

    // ---- Reading (the import) ---------------------------------------------------
    // Cells(fila, columna).Value. A position outside the sheet raises
    // "Application-defined or object-defined error" (1004), as Cells does.
    ValorExcel valor(int fila, int columna) const;
    bool vacia(int fila, int columna) const;
    // Cells(fila, columna).Text: what Excel shows, without number formats
    // (a number shows as it would in General format with Spanish settings).
    QString texto(int fila, int columna) const;
    // Row of Cells(Rows.Count, columna).End(xlUp): the last filled cell of
    // the column, row 1 when the column is empty. When the sheet's last cell
    // of the column is itself filled, End moves to the top of its block.
    int filaFinArriba(int columna) const;

    // Same name, size and cells, each with the same value.
    bool operator==(const HojaExcel& otra) const;

    // A number as the General format of a Spanish Excel shows it: up to
    // fifteen significant digits, comma for decimals, exponent beyond.
    static QString textoNumero(double valor);

private:
    struct Celda {
        std::uint64_t clave; // row << 16 | column
        union {
            double numero;        // Numero
            std::uint32_t indice; // Texto and Error: into textos_
            bool booleano;        // Booleano
        };
        ValorExcel::Tipo tipo;
    };
    static std::uint64_t clave(int fila, int columna)
    {
        return (static_cast<std::uint64_t>(fila) << 16) | static_cast<std::uint64_t>(columna);
    }
    void comprobarPosicion(int fila, int columna) const;
    Celda& anadir(int fila, int columna, ValorExcel::Tipo tipo);
    std::uint32_t guardarTexto(const QString& texto);
    const Celda* buscar(int fila, int columna) const;

    int filasHoja_;
    int columnasHoja_;
    QString nombre_;
    std::vector<Celda> celdas_;
    // The shared table first, then the texts of single cells.
    std::vector<QString> textos_;
    std::size_t textosCompartidos_ = 0;
    bool ordenada_ = true;
    // The cells of the row looked up last: the import reads a row's cells
    // one after another.
    mutable int filaVista_ = 0;
    mutable std::size_t desdeVista_ = 0;
    mutable std::size_t hastaVista_ = 0;
};

} // namespace presupuestos
