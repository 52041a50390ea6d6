#include "grid/ModeloRejilla.h"

#include "common/NumerosEs.h"
#include "common/VbError.h"

#include <QHash>
#include <QStringList>
#include <algorithm>
#include <limits>
#include <map>
#include <utility>

namespace presupuestos {

namespace {

// The texts the worksheet writes ("-1.234,50") read without the general
// parser, which dominates the cost of summing tens of thousands of cells.
// Only a plain form is taken here: an optional leading minus, digits with
// points between them, an optional comma and at most four decimals. For
// anything else, or any doubt, it gives up and the general parser decides.
bool leerRapido(const QString& texto, Currency& valor)
{
    const QChar* p = texto.constData();
    const qsizetype n = texto.size();
    qsizetype i = 0;
    const bool negativo = n > 0 && p[0] == QLatin1Char('-');
    if (negativo)
        ++i;
    std::int64_t entero = 0;
    int cifras = 0;
    for (; i < n; ++i) {
        const char16_t c = p[i].unicode();
        if (c >= u'0' && c <= u'9') {
            entero = entero * 10 + (c - u'0');
            if (entero != 0 && ++cifras > 14)
                return false;
        } else if (c == u'.') {
            const bool entreCifras = i > 0 && p[i - 1].isDigit() && i + 1 < n && p[i + 1].unicode() >= u'0'
                                     && p[i + 1].unicode() <= u'9';
            if (!entreCifras)
                return false;
        } else {
            break;
        }
    }
    const qsizetype finEntero = i;
    std::int64_t fraccion = 0;
    int decimales = 0;
    if (i < n && p[i] == QLatin1Char(',')) {
        for (++i; i < n; ++i) {
            const char16_t c = p[i].unicode();
            if (c < u'0' || c > u'9' || ++decimales > 4)
                return false;
            fraccion = fraccion * 10 + (c - u'0');
        }
    }
    if (i != n || (finEntero == (negativo ? 1 : 0) && decimales == 0))
        return false;
    for (int k = decimales; k < 4; ++k)
        fraccion *= 10;
    const std::int64_t raw = entero * Currency::Scale + fraccion;
    valor = Currency::fromRaw(negativo ? -raw : raw);
    return true;
}

// A cell as a term of a sum: its amount, or the mark of a total that no
// amount can represent (which makes every sum holding it unrepresentable).
struct Termino {
    Suma valor = 0;
    int desbordadas = 0;
};

Termino leerValor(const QString& texto)
{
    Currency v;
    if (leerRapido(texto, v))
        return {v.raw(), 0};
    if (texto == ModeloRejilla::MarcaDesbordamiento())
        return {0, 1};
    try {
        if (es::intentarMoneda(texto, v))
            return {v.raw(), 0};
    } catch (const VbError&) {
        // A number too large for the currency type cannot have been typed
        // into a month; it counts as nothing, like any other non-number.
    }
    return {};
}

// Ten-thousandths rounded to the decimals a format shows, halves away from
// zero, as the text shows them.
Suma redondear(Suma raw, int decimales)
{
    if (decimales >= 4)
        return raw;
    if (raw > -(std::int64_t(1) << 62) && raw < (std::int64_t(1) << 62)) {
        // The common case, in 64 bits: a 128-bit division costs several times more.
        std::int64_t paso = 1;
        for (int k = decimales; k < 4; ++k)
            paso *= 10;
        const auto v = static_cast<std::int64_t>(raw);
        const std::int64_t mag = v < 0 ? -v : v;
        std::int64_t q = mag / paso;
        if ((mag % paso) * 2 >= paso)
            ++q;
        return static_cast<Suma>(v < 0 ? -q : q) * paso;
    }
    Suma paso = 1;
    for (int k = decimales; k < 4; ++k)
        paso *= 10;
    const Suma mag = raw < 0 ? -raw : raw;
    Suma q = mag / paso;
    if ((mag % paso) * 2 >= paso)
        ++q;
    return (raw < 0 ? -q : q) * paso;
}

// A text a cell can keep as a number: exactly what formatting its value
// with its decimals (at most four), grouping thousands or not, writes.
bool comoNumero(const QString& texto, std::int64_t& valor, std::uint8_t& formato)
{
    Currency v;
    if (texto.size() > 32 || !leerRapido(texto, v))
        return false;
    const qsizetype coma = texto.indexOf(QLatin1Char(','));
    const auto decimales = static_cast<std::uint8_t>(coma < 0 ? 0 : texto.size() - coma - 1);
    for (const bool agrupar : {true, false}) {
        es::FormatoNumerico f;
        f.decimales = decimales;
        f.agrupar = agrupar;
        if (es::formatear(static_cast<Suma>(v.raw()), f) == texto) {
            valor = v.raw();
            formato = static_cast<std::uint8_t>(decimales | (agrupar ? 0x10 : 0));
            return true;
        }
    }
    return false;
}

QString componerTitulo(const QString& patron, const QString& valor)
{
    QString t = patron;
    t.replace(QLatin1String("%s"), valor);
    return t;
}

VbError valorNoValido()
{
    return VbError::invalidPropertyValue();
}

} // namespace

struct ModeloRejilla::Datos {
    static constexpr int kFilaDeCuenta = -2;
    static constexpr std::uint8_t kAlineacionDeColumna = 0xFF;

    enum Marca : std::uint8_t {
        Negrita = 4,
        BordeInferior = 8,
    };

    enum Tipo : std::uint8_t { Vacia, Numero, Texto };
    // The format byte of a number: its decimals, and whether it groups thousands.
    static constexpr std::uint8_t kDecimales = 0x0F;
    static constexpr std::uint8_t kAgrupar = 0x10;

    // Sixteen bytes on purpose: a worksheet of tens of thousands of rows
    // holds twenty of these per row. An amount is kept as its value and the
    // format it shows in, and becomes text only when read; any other text is
    // kept once in the model's pool, however many cells hold it; colours are
    // indices into the model's palette (0: the grid's default).
    struct Celda {
        std::int64_t dato = 0;   // the value of a number; the pool index of a text
        Tipo tipo = Vacia;
        std::uint8_t formato = 0;
        std::uint8_t fondo = 0;
        std::uint8_t frente = 0;
        std::uint8_t marcas = 0;
        std::uint8_t alineacion = kAlineacionDeColumna;
        std::uint8_t relleno = 0;
    };
    static_assert(sizeof(Celda) == 16);

    struct Fila {
        std::vector<Celda> celdas;
        // kFilaDeCuenta for an account row; otherwise the grouping column of
        // the subtotal row (-1 for the grand total).
        int agrupacion = kFilaDeCuenta;
        bool oculta = false;
    };

    struct Grupo {
        int primera = 0;        // first and last account row of the run; other
        int ultima = 0;         // groupings' subtotal rows may lie in between
        int filaSubtotal = -1;
        QString valor;
    };

    struct SumasColumna {
        std::vector<Suma> suma;       // one per group, exact: never overflows
        std::vector<int> desbordadas; // cells of the group holding the overflow mark
        std::vector<char> sucio;
        std::vector<int> sucios;      // the dirty groups, so a refresh never walks them all
        bool vigente = false;
        QString formato;
        es::FormatoNumerico leido;   // the format, read once
    };

    struct Agrupacion {
        int columna = -1;
        PosicionSubtotal posicion = PosicionSubtotal::Debajo;
        // False once rows were added, removed or regrouped behind its back:
        // the next Subtotal call for this grouping rebuilds it from the rows.
        bool valida = false;
        std::vector<Grupo> grupos;
        std::map<int, SumasColumna> sumas;
        QString patron;
        bool tituloEscrito = false;
        QColor fondo;
        bool fondoAplicado = false;
    };

    struct Insercion {
        int antes = 0;   // old index the new row goes in front of (size = at the end)
        Fila fila;
    };

    explicit Datos(ModeloRejilla* modelo) : q(modelo) {}

    ModeloRejilla* q;
    std::vector<Fila> filas;
    int cols = 0;
    int fijas = 0;
    std::vector<std::uint8_t> alineacionColumna;
    std::vector<int> anchoColumna;
    std::vector<char> columnaOculta;
    int altoMinimo = 0;

    QColor fondo = QColor(255, 255, 255);
    QColor fondoVacio = QColor(128, 128, 128);
    QColor fondoSeleccion = QColor(0, 120, 215);
    QColor fondoFijas = QColor(240, 240, 240);
    int puntos = 8;

    int fila = -1;
    int col = -1;
    int filaSel = -1;
    int colSel = -1;
    int filaSuperior = 0;
    int colIzquierda = 0;

    bool redibujar = true;
    bool pendiente = false;

    std::vector<QString> textos;
    QHash<QString, std::uint32_t> indiceTextos;
    std::vector<QRgb> paleta;   // palette index i + 1 is paleta[i]

    PosicionSubtotal posicion = PosicionSubtotal::Debajo;
    std::vector<Agrupacion> agrupaciones;
    long long sumadas = 0;

    int numFilas() const { return static_cast<int>(filas.size()); }

    // While redraw is off the view hears nothing but the final reset, so a
    // load of thousands of rows costs it one refresh. The adapter relies on
    // this: it keeps its own row count and only updates it from the signals.
    template <typename F>
    void anunciar(F&& emitir)
    {
        if (redibujar)
            emitir();
        else
            pendiente = true;
    }

    void anunciarCeldas(int f1, int c1, int f2, int c2)
    {
        anunciar([&] { emit q->celdasCambiadas(f1, c1, f2, c2); });
    }

    void comprobarFila(int f) const
    {
        if (f < 0 || f >= numFilas())
            throw VbError::subscriptOutOfRange();
    }
    void comprobarCol(int c) const
    {
        if (c < 0 || c >= cols)
            throw VbError::subscriptOutOfRange();
    }
    void comprobarCelda(int f, int c) const
    {
        comprobarFila(f);
        comprobarCol(c);
    }
    Celda& celda(int f, int c) { return filas[f].celdas[c]; }
    const Celda& celda(int f, int c) const { return filas[f].celdas[c]; }
    bool esDeCuenta(int f) const { return f >= fijas && filas[f].agrupacion == kFilaDeCuenta; }

    // ---- Contents ------------------------------------------------------------

    static es::FormatoNumerico formatoDe(std::uint8_t f)
    {
        es::FormatoNumerico r;
        r.decimales = f & kDecimales;
        r.agrupar = (f & kAgrupar) != 0;
        return r;
    }

    QString textoDe(const Celda& c) const
    {
        switch (c.tipo) {
        case Numero:
            return es::formatear(static_cast<Suma>(c.dato), formatoDe(c.formato));
        case Texto:
            return textos[static_cast<std::size_t>(c.dato)];
        case Vacia:
            break;
        }
        return QString();
    }

    Termino terminoDe(const Celda& c) const
    {
        switch (c.tipo) {
        case Numero:
            return {c.dato, 0};
        case Texto:
            return leerValor(textos[static_cast<std::size_t>(c.dato)]);
        case Vacia:
            break;
        }
        return {};
    }

    std::uint32_t guardarTexto(const QString& t)
    {
        const auto it = indiceTextos.constFind(t);
        if (it != indiceTextos.cend())
            return it.value();
        const auto i = static_cast<std::uint32_t>(textos.size());
        textos.push_back(t);
        indiceTextos.insert(t, i);
        return i;
    }

    // Sets the content of c from a text, as a number when the text is
    // exactly what the number's format writes (so reading it gives the text
    // back unchanged), otherwise as the text itself.
    void ponerTexto(Celda& c, const QString& t)
    {
        std::int64_t valor = 0;
        std::uint8_t formato = 0;
        if (t.isEmpty()) {
            c.tipo = Vacia;
            c.dato = 0;
        } else if (comoNumero(t, valor, formato)) {
            c.tipo = Numero;
            c.dato = valor;
            c.formato = formato;
        } else {
            c.tipo = Texto;
            c.dato = guardarTexto(t);
        }
    }

    // The cell holding a sum shown in a format: the value it shows (rounded
    // as the text is), or the text when the format is one cells cannot keep.
    void ponerSuma(Celda& c, Suma suma, const es::FormatoNumerico& f)
    {
        if (Currency::enRango(suma) && !f.porcentaje && f.decimales <= kDecimales) {
            const Suma mostrada = redondear(suma, f.decimales);
            if (Currency::enRango(mostrada)) {
                c.tipo = Numero;
                c.dato = static_cast<std::int64_t>(mostrada);
                c.formato = static_cast<std::uint8_t>(f.decimales | (f.agrupar ? kAgrupar : 0));
                return;
            }
        }
        ponerTexto(c, Currency::enRango(suma) ? es::formatear(suma, f) : ModeloRejilla::MarcaDesbordamiento());
    }

    bool mismoContenido(const Celda& a, const Celda& b) const
    {
        if (a.tipo == b.tipo && (a.tipo != Numero || a.formato == b.formato))
            return a.dato == b.dato;
        if ((a.tipo == Vacia) != (b.tipo == Vacia))
            return false;
        return textoDe(a) == textoDe(b);
    }

    // Texts no cell holds any more are dropped once the pool has grown well
    // past what the cells could use (a reload leaves the last load's behind).
    void compactarTextos()
    {
        std::size_t celdas = 0;
        for (const Fila& f : filas)
            celdas += f.celdas.size();
        if (textos.size() < 1024 || textos.size() < 2 * celdas)
            return;
        std::vector<QString> viejos = std::move(textos);
        textos.clear();
        indiceTextos.clear();
        for (Fila& f : filas)
            for (Celda& c : f.celdas)
                if (c.tipo == Texto)
                    c.dato = guardarTexto(viejos[static_cast<std::size_t>(c.dato)]);
    }

    std::uint8_t indiceColor(const QColor& color)
    {
        if (!color.isValid())
            return 0;
        const QRgb rgb = color.rgba();
        for (std::size_t i = 0; i < paleta.size(); ++i)
            if (paleta[i] == rgb)
                return static_cast<std::uint8_t>(i + 1);
        if (paleta.size() < 255) {
            paleta.push_back(rgb);
            return static_cast<std::uint8_t>(paleta.size());
        }
        // A grid painted in more than 255 colours: the nearest one stands in.
        std::size_t mejor = 0;
        long long distancia = -1;
        for (std::size_t i = 0; i < paleta.size(); ++i) {
            const long long dr = qRed(paleta[i]) - qRed(rgb), dg = qGreen(paleta[i]) - qGreen(rgb),
                            db = qBlue(paleta[i]) - qBlue(rgb), da = qAlpha(paleta[i]) - qAlpha(rgb);
            const long long dd = dr * dr + dg * dg + db * db + da * da;
            if (distancia < 0 || dd < distancia) {
                distancia = dd;
                mejor = i;
            }
        }
        return static_cast<std::uint8_t>(mejor + 1);
    }

    QColor color(std::uint8_t indice) const
    {
        return indice == 0 ? QColor() : QColor::fromRgba(paleta[indice - 1]);
    }

    Fila filaVacia() const
    {
        Fila f;
        f.celdas.resize(cols);
        return f;
    }

    template <typename F>
    void recorrerRango(int& f1, int& c1, int& f2, int& c2, F&& hacer)
    {
        if (f1 > f2) std::swap(f1, f2);
        if (c1 > c2) std::swap(c1, c2);
        comprobarCelda(f1, c1);
        comprobarCelda(f2, c2);
        for (int r = f1; r <= f2; ++r)
            for (int c = c1; c <= c2; ++c)
                hacer(celda(r, c));
        anunciarCeldas(f1, c1, f2, c2);
    }

    Agrupacion* agrupacion(int columna)
    {
        for (auto& a : agrupaciones)
            if (a.columna == columna)
                return &a;
        return nullptr;
    }

    void invalidarAgrupaciones()
    {
        for (auto& a : agrupaciones)
            a.valida = false;
    }

    // Group holding account row f, or -1.
    static int grupoDe(const Agrupacion& a, int f)
    {
        auto it = std::upper_bound(a.grupos.begin(), a.grupos.end(), f,
                                   [](int v, const Grupo& g) { return v < g.primera; });
        if (it == a.grupos.begin())
            return -1;
        --it;
        return f <= it->ultima ? static_cast<int>(it - a.grupos.begin()) : -1;
    }

    // Keeps the cursor on a data cell, or at -1 while there is none: a grid
    // that fills from empty starts with its first data row current, as the
    // forms expect after a load. Done before a change of shape is announced
    // (so the view reads the final cursor and top row) and reported after it
    // (so the view already has the rows the cursor is on).
    bool limitarCursor()
    {
        const int n = numFilas();
        bool cambio = false;
        auto ajustar = [&](int& v, int limite, int minimo) {
            int nuevo = std::clamp(v, -1, limite - 1);
            if (nuevo < minimo)
                nuevo = minimo < limite ? minimo : -1;
            if (nuevo != v) {
                v = nuevo;
                cambio = true;
            }
        };
        ajustar(fila, n, fijas);
        ajustar(filaSel, n, fijas);
        ajustar(col, cols, 0);
        ajustar(colSel, cols, 0);
        filaSuperior = n > fijas ? std::clamp(filaSuperior, fijas, n - 1) : fijas;
        colIzquierda = cols > 0 ? std::clamp(colIzquierda, 0, cols - 1) : 0;
        return cambio;
    }

    template <typename F>
    void cambiarForma(bool cursorMovido, F&& emitir)
    {
        cursorMovido = limitarCursor() || cursorMovido;
        anunciar(std::forward<F>(emitir));
        if (cursorMovido)
            emit q->seleccionCambiada();
    }

    // ---- Subtotal helpers --------------------------------------------------

    void escribirSubtotal(int f, int c, const QString& texto)
    {
        Celda nueva = celda(f, c);
        ponerTexto(nueva, texto);
        escribirSubtotal(f, c, nueva);
    }

    void escribirSubtotal(int f, int c, const Celda& nueva)
    {
        // Subtotal rows are not account rows: no sum follows them.
        Celda& cel = celda(f, c);
        if (mismoContenido(cel, nueva))
            return;
        cel = nueva;
        anunciarCeldas(f, c, f, c);
        emit q->textoCambiado(f, c);
    }

    void escribirTitulos(const Agrupacion& a)
    {
        const int colTitulo = a.columna < 0 ? 1 : a.columna;
        if (colTitulo >= cols)
            return;
        for (const Grupo& g : a.grupos)
            escribirSubtotal(g.filaSubtotal, colTitulo, componerTitulo(a.patron, g.valor));
    }

    void pintarFondo(Agrupacion& a)
    {
        a.fondoAplicado = true;
        if (!a.fondo.isValid() || cols == 0)
            return;
        const std::uint8_t indice = indiceColor(a.fondo);
        for (const Grupo& g : a.grupos) {
            for (Celda& c : filas[g.filaSubtotal].celdas)
                c.fondo = indice;
            anunciarCeldas(g.filaSubtotal, 0, g.filaSubtotal, cols - 1);
        }
    }

    void sumarColumna(Agrupacion& a, int c, SumasColumna& s)
    {
        const std::size_t n = a.grupos.size();
        s.vigente = false;
        s.suma.assign(n, 0);
        s.desbordadas.assign(n, 0);
        s.sucio.assign(n, 0);
        s.sucios.clear();
        for (std::size_t g = 0; g < n; ++g) {
            Termino total;
            for (int r = a.grupos[g].primera; r <= a.grupos[g].ultima; ++r) {
                if (!esDeCuenta(r))
                    continue;
                ++sumadas;
                const Termino t = terminoDe(celda(r, c));
                total.valor += t.valor;
                total.desbordadas += t.desbordadas;
            }
            s.suma[g] = total.valor;
            s.desbordadas[g] = total.desbordadas;
        }
        s.vigente = true;
        for (std::size_t g = 0; g < n; ++g)
            escribirSubtotal(a.grupos[g].filaSubtotal, c, celdaSuma(s, a.grupos[g].filaSubtotal, c, g));
    }

    Celda celdaSuma(const SumasColumna& s, int f, int c, std::size_t g)
    {
        Celda r = celda(f, c);
        ponerSuma(r, s.desbordadas[g] > 0 ? kSumaFueraDeRango : s.suma[g], s.leido);
        return r;
    }

    void escribirSumas(const Agrupacion& a, int c, SumasColumna& s, bool todas)
    {
        if (todas) {
            for (std::size_t g = 0; g < a.grupos.size(); ++g)
                escribirSubtotal(a.grupos[g].filaSubtotal, c, celdaSuma(s, a.grupos[g].filaSubtotal, c, g));
        } else {
            for (int g : s.sucios)
                escribirSubtotal(a.grupos[g].filaSubtotal, c, celdaSuma(s, a.grupos[g].filaSubtotal, c, g));
        }
        for (int g : s.sucios)
            s.sucio[g] = 0;
        s.sucios.clear();
    }

    // Follows a cell change of an account row into the sums of every
    // grouping that keeps that column, by the difference of the two contents.
    void seguirCambio(int f, int c, const Celda& anterior, const Celda& nuevo)
    {
        bool leido = false;
        Termino diferencia;
        for (auto& a : agrupaciones) {
            if (!a.valida)
                continue;
            if (c == a.columna) {
                // The row may now belong to another group, or start one.
                a.valida = false;
                continue;
            }
            auto it = a.sumas.find(c);
            if (it == a.sumas.end() || !it->second.vigente)
                continue;
            const int g = grupoDe(a, f);
            if (g < 0)
                continue;
            if (!leido) {
                sumadas += 2;
                const Termino n = terminoDe(nuevo), v = terminoDe(anterior);
                diferencia = {n.valor - v.valor, n.desbordadas - v.desbordadas};
                leido = true;
            }
            if (diferencia.valor == 0 && diferencia.desbordadas == 0)
                continue;
            SumasColumna& s = it->second;
            s.suma[g] += diferencia.valor;
            s.desbordadas[g] += diferencia.desbordadas;
            if (!s.sucio[g]) {
                s.sucio[g] = 1;
                s.sucios.push_back(g);
            }
        }
    }

    // Deletes the marked rows and inserts the new ones in one pass, so a grid
    // of tens of thousands of rows with hundreds of groups is not shifted
    // once per group. Returns, for each old row, its new index (for a deleted
    // row, the index of the row now standing where it was); the other
    // groupings and the cursor follow their rows through it.
    std::vector<int> reestructurar(const std::vector<char>& borrar, std::vector<Insercion>& inserciones,
                                   std::vector<int>& nuevas)
    {
        const int n = numFilas();
        std::vector<Fila> salida;
        salida.reserve(n + inserciones.size());
        std::vector<int> posEn(n + 1, 0);
        nuevas.assign(inserciones.size(), -1);
        std::size_t k = 0;
        for (int i = 0; i <= n; ++i) {
            while (k < inserciones.size() && inserciones[k].antes == i) {
                nuevas[k] = static_cast<int>(salida.size());
                salida.push_back(std::move(inserciones[k].fila));
                ++k;
            }
            posEn[i] = static_cast<int>(salida.size());
            if (i < n && !borrar[i])
                salida.push_back(std::move(filas[i]));
        }
        filas = std::move(salida);
        const int total = numFilas();

        for (auto& otra : agrupaciones) {
            if (!otra.valida)
                continue;
            for (Grupo& gr : otra.grupos) {
                gr.primera = posEn[gr.primera];
                gr.ultima = posEn[gr.ultima];
                gr.filaSubtotal = posEn[gr.filaSubtotal];
            }
        }

        const int antesFila = fila, antesSel = filaSel;
        auto seguir = [&](int& v) {
            if (v >= 0 && v < n)
                v = std::min(posEn[v], total - 1);
        };
        seguir(fila);
        seguir(filaSel);
        seguir(filaSuperior);
        cambiarForma(fila != antesFila || filaSel != antesSel, [&] { emit q->reiniciado(); });
        return posEn;
    }

    // Finds the groups of a grouping from the rows and puts one subtotal row
    // next to each, reusing the grouping's rows that already stand in place,
    // so repeated calls add nothing and a regrouping moves only what it must.
    void reconstruir(Agrupacion& a)
    {
        const int n = numFilas();
        const bool total = a.columna < 0;
        const bool reutilizar = a.posicion == posicion;
        const bool debajo = posicion == PosicionSubtotal::Debajo;

        std::vector<Grupo> grupos;
        for (int r = fijas; r < n; ++r) {
            if (filas[r].agrupacion != kFilaDeCuenta)
                continue;
            const QString clave = total ? TituloTotalGeneral() : textoDe(celda(r, a.columna));
            if (grupos.empty() || (!total && clave != grupos.back().valor))
                grupos.push_back(Grupo{r, r, -1, clave});
            else
                grupos.back().ultima = r;
        }

        // The gap where a group's subtotal row may stand: between the group
        // and its neighbour on the subtotal's side.
        auto hueco = [&](std::size_t g, int& desde, int& hasta) {
            if (total) {
                desde = debajo ? grupos[g].ultima + 1 : fijas;
                hasta = debajo ? n - 1 : grupos[g].primera - 1;
            } else if (debajo) {
                desde = grupos[g].ultima + 1;
                hasta = g + 1 < grupos.size() ? grupos[g + 1].primera - 1 : n - 1;
            } else {
                desde = g > 0 ? grupos[g - 1].ultima + 1 : fijas;
                hasta = grupos[g].primera - 1;
            }
        };

        std::vector<char> borrar(n, 0);
        bool cambiaForma = false;
        std::size_t g = 0;
        for (int r = fijas; r < n; ++r) {
            if (filas[r].agrupacion != a.columna)
                continue;
            bool reutilizada = false;
            if (reutilizar) {
                int desde = 0, hasta = -1;
                while (g < grupos.size()) {
                    hueco(g, desde, hasta);
                    if (hasta >= r)
                        break;
                    ++g;
                }
                if (g < grupos.size() && r >= desde && grupos[g].filaSubtotal < 0) {
                    grupos[g].filaSubtotal = r;
                    reutilizada = true;
                }
            }
            if (!reutilizada) {
                borrar[r] = 1;
                cambiaForma = true;
            }
        }

        std::vector<Insercion> inserciones;
        std::vector<std::size_t> gruposNuevos;
        for (std::size_t k = 0; k < grupos.size(); ++k) {
            if (grupos[k].filaSubtotal >= 0)
                continue;
            int antes;
            if (total)
                antes = debajo ? n : fijas;
            else
                antes = debajo ? grupos[k].ultima + 1 : grupos[k].primera;
            Fila f = filaVacia();
            f.agrupacion = a.columna;
            inserciones.push_back(Insercion{antes, std::move(f)});
            gruposNuevos.push_back(k);
            cambiaForma = true;
        }

        if (cambiaForma) {
            // This grouping is rebuilt below; keep reestructurar from
            // remapping its stale groups.
            a.valida = false;
            std::vector<int> nuevas;
            const std::vector<int> posEn = reestructurar(borrar, inserciones, nuevas);
            for (Grupo& gr : grupos) {
                gr.primera = posEn[gr.primera];
                gr.ultima = posEn[gr.ultima];
                if (gr.filaSubtotal >= 0)
                    gr.filaSubtotal = posEn[gr.filaSubtotal];
            }
            for (std::size_t k = 0; k < gruposNuevos.size(); ++k)
                grupos[gruposNuevos[k]].filaSubtotal = nuevas[k];
        }

        a.grupos = std::move(grupos);
        a.posicion = posicion;
        a.valida = true;
        a.tituloEscrito = false;
        a.fondoAplicado = false;
        for (auto& [c, s] : a.sumas)
            s.vigente = false;
    }
};

ModeloRejilla::ModeloRejilla(QObject* parent)
    : QObject(parent), d(std::make_unique<Datos>(this))
{
}

ModeloRejilla::~ModeloRejilla() = default;

// ---- Shape ----------------------------------------------------------------------

int ModeloRejilla::Rows() const { return d->numFilas(); }

void ModeloRejilla::setRows(int n)
{
    if (n < 0)
        throw valorNoValido();
    const int antes = Rows();
    if (n == antes)
        return;
    if (n > antes) {
        d->filas.reserve(n);
        for (int i = antes; i < n; ++i)
            d->filas.push_back(d->filaVacia());
        d->invalidarAgrupaciones();
        d->cambiarForma(false, [&] { emit filasInsertadas(antes, n - 1); });
    } else {
        d->filas.resize(n);
        d->compactarTextos();
        if (n < d->fijas)
            d->fijas = n;
        // Back to the header: the next load starts its subtotals afresh.
        if (n <= d->fijas)
            d->agrupaciones.clear();
        else
            d->invalidarAgrupaciones();
        d->cambiarForma(false, [&] { emit filasEliminadas(n, antes - 1); });
    }
}

int ModeloRejilla::Cols() const { return d->cols; }

void ModeloRejilla::setCols(int n)
{
    if (n < 0)
        throw valorNoValido();
    if (n == d->cols)
        return;
    d->cols = n;
    for (auto& f : d->filas)
        f.celdas.resize(n);
    d->alineacionColumna.resize(n, static_cast<std::uint8_t>(Alineacion::General));
    d->anchoColumna.resize(n, -1);
    d->columnaOculta.resize(n, 0);
    // Grouping and summed columns may be gone; the subtotal rows keep their
    // mark, so a later Subtotal call finds and reuses them.
    d->agrupaciones.clear();
    d->cambiarForma(false, [&] { emit reiniciado(); });
}

int ModeloRejilla::FixedRows() const { return d->fijas; }

void ModeloRejilla::setFixedRows(int n)
{
    if (n < 0)
        throw valorNoValido();
    if (n == d->fijas)
        return;
    // A header needs its rows: they are made as empty rows.
    while (Rows() < n)
        d->filas.push_back(d->filaVacia());
    d->fijas = n;
    d->invalidarAgrupaciones();
    d->cambiarForma(false, [&] { emit reiniciado(); });
}

void ModeloRejilla::AddItem(const QString& textoConTabuladores) { AddItem(textoConTabuladores.split(QLatin1Char('\t'))); }

void ModeloRejilla::AddItem(QStringList campos)
{
    Datos::Fila f = d->filaVacia();
    const int usados = std::min<int>(campos.size(), d->cols);
    for (int c = 0; c < usados; ++c)
        d->ponerTexto(f.celdas[c], campos[c]);
    d->filas.push_back(std::move(f));
    const int r = Rows() - 1;
    d->invalidarAgrupaciones();
    d->cambiarForma(false, [&] { emit filasInsertadas(r, r); });
    for (int c = 0; c < usados; ++c)
        if (d->filas.back().celdas[c].tipo != Datos::Vacia)
            emit textoCambiado(r, c);
}

ValorCelda ValorCelda::texto(QString t)
{
    ValorCelda v;
    v.tipo_ = t.isEmpty() ? Tipo::Vacio : Tipo::Texto;
    v.texto_ = std::move(t);
    return v;
}

ValorCelda ValorCelda::importe(Suma valor, const es::FormatoNumerico& formato)
{
    ValorCelda v;
    v.tipo_ = Tipo::Importe;
    v.valor_ = valor;
    v.formato_ = formato;
    return v;
}

void ModeloRejilla::AddItem(const std::vector<ValorCelda>& valores)
{
    Datos::Fila f = d->filaVacia();
    const int usados = std::min<int>(static_cast<int>(valores.size()), d->cols);
    for (int c = 0; c < usados; ++c) {
        const ValorCelda& v = valores[static_cast<std::size_t>(c)];
        Datos::Celda& celda = f.celdas[c];
        switch (v.tipo_) {
        case ValorCelda::Tipo::Vacio:
            break;
        case ValorCelda::Tipo::Texto: {
            // Loads come sorted: a department's name, say, is the one the
            // row above holds, found without hashing it again.
            const Datos::Celda* arriba = d->filas.empty() ? nullptr : &d->filas.back().celdas[c];
            celda.tipo = Datos::Texto;
            celda.dato = arriba && arriba->tipo == Datos::Texto && d->textos[static_cast<std::size_t>(arriba->dato)] == v.texto_
                             ? arriba->dato
                             : d->guardarTexto(v.texto_);
            break;
        }
        case ValorCelda::Tipo::Importe:
            d->ponerSuma(celda, v.valor_, v.formato_);
            break;
        }
    }
    d->filas.push_back(std::move(f));
    const int r = Rows() - 1;
    d->invalidarAgrupaciones();
    d->cambiarForma(false, [&] { emit filasInsertadas(r, r); });
}

void ModeloRejilla::RemoveItem(int fila)
{
    d->comprobarFila(fila);
    d->filas.erase(d->filas.begin() + fila);
    if (fila < d->fijas)
        --d->fijas;
    // Removing rows is rare (accounts are hidden, not removed); rebuilding
    // the groups on the next Subtotal call is simpler than patching them.
    d->invalidarAgrupaciones();
    bool cambio = false;
    if (d->fila > fila) { --d->fila; cambio = true; }
    if (d->filaSel > fila) { --d->filaSel; cambio = true; }
    if (d->filaSuperior > fila)
        --d->filaSuperior;
    d->cambiarForma(cambio, [&] { emit filasEliminadas(fila, fila); });
}

// ---- Cells --------------------------------------------------------------------

QString ModeloRejilla::TextMatrix(int fila, int col) const
{
    d->comprobarCelda(fila, col);
    return d->textoDe(d->celda(fila, col));
}

Suma ModeloRejilla::ValorMatrix(int fila, int col, bool* desbordada) const
{
    d->comprobarCelda(fila, col);
    const Termino t = d->terminoDe(d->celda(fila, col));
    if (desbordada)
        *desbordada = t.desbordadas > 0;
    return t.valor;
}

void ModeloRejilla::setTextMatrix(int fila, int col, const QString& texto)
{
    d->comprobarCelda(fila, col);
    Datos::Celda& cel = d->celda(fila, col);
    Datos::Celda nueva = cel;
    d->ponerTexto(nueva, texto);
    if (d->mismoContenido(cel, nueva))
        return;
    const Datos::Celda anterior = std::exchange(cel, nueva);
    if (!d->agrupaciones.empty() && d->esDeCuenta(fila))
        d->seguirCambio(fila, col, anterior, nueva);
    d->anunciarCeldas(fila, col, fila, col);
    emit textoCambiado(fila, col);
}

QColor ModeloRejilla::CellBackColor(int fila, int col) const
{
    d->comprobarCelda(fila, col);
    return d->color(d->celda(fila, col).fondo);
}

void ModeloRejilla::setCellBackColor(int fila, int col, const QColor& color)
{
    setCellBackColor(fila, col, fila, col, color);
}

void ModeloRejilla::setCellBackColor(int fila1, int col1, int fila2, int col2, const QColor& color)
{
    const std::uint8_t indice = d->indiceColor(color);
    d->recorrerRango(fila1, col1, fila2, col2, [&](Datos::Celda& c) { c.fondo = indice; });
}

QColor ModeloRejilla::CellForeColor(int fila, int col) const
{
    d->comprobarCelda(fila, col);
    return d->color(d->celda(fila, col).frente);
}

void ModeloRejilla::setCellForeColor(int fila, int col, const QColor& color)
{
    d->comprobarCelda(fila, col);
    Datos::Celda& c = d->celda(fila, col);
    const std::uint8_t indice = d->indiceColor(color);
    if (indice == c.frente)
        return;   // negative numbers are recoloured on every text change
    c.frente = indice;
    d->anunciarCeldas(fila, col, fila, col);
}

bool ModeloRejilla::CellFontBold(int fila, int col) const
{
    d->comprobarCelda(fila, col);
    return d->celda(fila, col).marcas & Datos::Negrita;
}

void ModeloRejilla::setCellFontBold(int fila, int col, bool negrita)
{
    d->recorrerRango(fila, col, fila, col, [&](Datos::Celda& c) {
        if (negrita)
            c.marcas |= Datos::Negrita;
        else
            c.marcas &= ~Datos::Negrita;
    });
}

bool ModeloRejilla::CellBorderBottom(int fila, int col) const
{
    d->comprobarCelda(fila, col);
    return d->celda(fila, col).marcas & Datos::BordeInferior;
}

void ModeloRejilla::setCellBorderBottom(int fila1, int col1, int fila2, int col2, bool borde)
{
    d->recorrerRango(fila1, col1, fila2, col2, [&](Datos::Celda& c) {
        if (borde)
            c.marcas |= Datos::BordeInferior;
        else
            c.marcas &= ~Datos::BordeInferior;
    });
}

ModeloRejilla::Alineacion ModeloRejilla::CellAlignment(int fila, int col) const
{
    d->comprobarCelda(fila, col);
    const std::uint8_t a = d->celda(fila, col).alineacion;
    return static_cast<Alineacion>(a == Datos::kAlineacionDeColumna ? d->alineacionColumna[col] : a);
}

void ModeloRejilla::setCellAlignment(int fila1, int col1, int fila2, int col2, Alineacion a)
{
    d->recorrerRango(fila1, col1, fila2, col2,
                     [&](Datos::Celda& c) { c.alineacion = static_cast<std::uint8_t>(a); });
}

void ModeloRejilla::setColAlignment(int col, Alineacion a)
{
    d->comprobarCol(col);
    d->alineacionColumna[col] = static_cast<std::uint8_t>(a);
    if (Rows() > 0)
        d->anunciarCeldas(0, col, Rows() - 1, col);
}

int ModeloRejilla::CellFloodPercent(int fila, int col) const
{
    d->comprobarCelda(fila, col);
    return d->celda(fila, col).relleno;
}

void ModeloRejilla::setCellFloodPercent(int fila, int col, int porcentaje)
{
    const auto p = static_cast<std::uint8_t>(std::clamp(porcentaje, 0, 100));
    d->recorrerRango(fila, col, fila, col, [&](Datos::Celda& c) { c.relleno = p; });
}

// ---- Rows and columns -----------------------------------------------------------

bool ModeloRejilla::RowHidden(int fila) const
{
    d->comprobarFila(fila);
    return d->filas[fila].oculta;
}

void ModeloRejilla::setRowHidden(int fila, bool oculta)
{
    d->comprobarFila(fila);
    if (d->filas[fila].oculta == oculta)
        return;
    d->filas[fila].oculta = oculta;
    d->anunciar([&] {
        emit filaOcultaCambiada(fila);
        emit formaCambiada();
    });
}

bool ModeloRejilla::ColHidden(int col) const
{
    d->comprobarCol(col);
    return d->columnaOculta[col];
}

void ModeloRejilla::setColHidden(int col, bool oculta)
{
    d->comprobarCol(col);
    if (bool(d->columnaOculta[col]) == oculta)
        return;
    d->columnaOculta[col] = oculta;
    d->anunciar([&] { emit formaCambiada(); });
}

int ModeloRejilla::ColWidth(int col) const
{
    d->comprobarCol(col);
    return d->anchoColumna[col];
}

void ModeloRejilla::setColWidth(int col, int twips)
{
    d->comprobarCol(col);
    d->anchoColumna[col] = twips < 0 ? -1 : twips;
    d->anunciar([&] { emit formaCambiada(); });
}

int ModeloRejilla::RowHeightMin() const { return d->altoMinimo; }

void ModeloRejilla::setRowHeightMin(int twips)
{
    d->altoMinimo = std::max(0, twips);
    d->anunciar([&] { emit formaCambiada(); });
}

// ---- Grid look ----------------------------------------------------------------

QColor ModeloRejilla::BackColor() const { return d->fondo; }
QColor ModeloRejilla::BackColorBkg() const { return d->fondoVacio; }
QColor ModeloRejilla::BackColorSel() const { return d->fondoSeleccion; }
QColor ModeloRejilla::BackColorFixed() const { return d->fondoFijas; }
int ModeloRejilla::FontSize() const { return d->puntos; }

void ModeloRejilla::setBackColor(const QColor& c)
{
    d->fondo = c;
    d->anunciar([&] { emit formaCambiada(); });
}

void ModeloRejilla::setBackColorBkg(const QColor& c)
{
    d->fondoVacio = c;
    d->anunciar([&] { emit formaCambiada(); });
}

void ModeloRejilla::setBackColorSel(const QColor& c)
{
    d->fondoSeleccion = c;
    d->anunciar([&] { emit formaCambiada(); });
}

void ModeloRejilla::setBackColorFixed(const QColor& c)
{
    d->fondoFijas = c;
    d->anunciar([&] { emit formaCambiada(); });
}

void ModeloRejilla::setFontSize(int puntos)
{
    d->puntos = std::max(1, puntos);
    d->anunciar([&] { emit formaCambiada(); });
}

// ---- Current cell and selection --------------------------------------------------

int ModeloRejilla::Row() const { return d->fila; }
int ModeloRejilla::Col() const { return d->col; }
int ModeloRejilla::RowSel() const { return d->filaSel; }
int ModeloRejilla::ColSel() const { return d->colSel; }

void ModeloRejilla::setRow(int fila) { Select(fila, d->col); }
void ModeloRejilla::setCol(int col) { Select(d->fila, col); }
void ModeloRejilla::setRowSel(int fila) { Select(d->fila, d->col, fila, d->colSel); }
void ModeloRejilla::setColSel(int col) { Select(d->fila, d->col, d->filaSel, col); }

void ModeloRejilla::Select(int fila, int col, int filaSel, int colSel)
{
    auto limitar = [](int v, int n) { return std::clamp(v, -1, n - 1); };
    fila = limitar(fila, Rows());
    col = limitar(col, d->cols);
    filaSel = filaSel < 0 ? fila : limitar(filaSel, Rows());
    colSel = colSel < 0 ? col : limitar(colSel, d->cols);
    if (fila == d->fila && col == d->col && filaSel == d->filaSel && colSel == d->colSel)
        return;
    d->fila = fila;
    d->col = col;
    d->filaSel = filaSel;
    d->colSel = colSel;
    // Not held back by redraw: RowColChange handlers run during loads too.
    emit seleccionCambiada();
}

int ModeloRejilla::TopRow() const { return d->filaSuperior; }

void ModeloRejilla::setTopRow(int fila)
{
    const int n = Rows();
    const int nueva = n > d->fijas ? std::clamp(fila, d->fijas, n - 1) : d->fijas;
    if (nueva == d->filaSuperior)
        return;
    d->filaSuperior = nueva;
    emit filaSuperiorCambiada();
}

int ModeloRejilla::LeftCol() const { return d->colIzquierda; }

void ModeloRejilla::setLeftCol(int col)
{
    const int nueva = d->cols > 0 ? std::clamp(col, 0, d->cols - 1) : 0;
    if (nueva == d->colIzquierda)
        return;
    d->colIzquierda = nueva;
    emit filaSuperiorCambiada();
}

// ---- Redraw -----------------------------------------------------------------------

bool ModeloRejilla::Redraw() const { return d->redibujar; }

void ModeloRejilla::setRedraw(bool activo)
{
    if (activo == d->redibujar)
        return;
    d->redibujar = activo;
    if (activo && d->pendiente) {
        d->pendiente = false;
        emit reiniciado();
    }
    emit redrawCambiado(activo);
}

// ---- Range text -----------------------------------------------------------------

QString ModeloRejilla::Clip(int fila1, int col1, int fila2, int col2) const
{
    if (fila1 > fila2) std::swap(fila1, fila2);
    if (col1 > col2) std::swap(col1, col2);
    // An empty grid has its cursor at -1: copying it copies nothing.
    if (fila1 == -1 || col1 == -1)
        return QString();
    d->comprobarCelda(fila1, col1);
    d->comprobarCelda(fila2, col2);
    QString texto;
    for (int r = fila1; r <= fila2; ++r) {
        if (r > fila1)
            texto += QLatin1String("\r\n");
        for (int c = col1; c <= col2; ++c) {
            if (c > col1)
                texto += QLatin1Char('\t');
            texto += d->textoDe(d->celda(r, c));
        }
    }
    return texto;
}

// ---- Subtotals ------------------------------------------------------------------

QString ModeloRejilla::MarcaDesbordamiento() { return QStringLiteral("#¡NUM!"); }

QString ModeloRejilla::FormatearSuma(Suma suma, const QString& formato)
{
    if (!Currency::enRango(suma))
        return MarcaDesbordamiento();
    try {
        return es::formatear(Currency::fromRaw(static_cast<std::int64_t>(suma)), formato);
    } catch (const VbError&) {
        // Rounded to the format's decimals it no longer fits.
        return MarcaDesbordamiento();
    }
}

Suma ModeloRejilla::ValorSuma(const QString& texto, bool* desbordada)
{
    const Termino t = leerValor(texto);
    if (desbordada)
        *desbordada = t.desbordadas > 0;
    return t.valor;
}

std::optional<ModeloRejilla::SumaGrupo> ModeloRejilla::sumaGrupo(int colAgrupar, int fila, int col) const
{
    const Datos::Agrupacion* a = nullptr;
    for (const auto& ag : d->agrupaciones)
        if (ag.columna == colAgrupar)
            a = &ag;
    if (!a || !a->valida || col < 0 || col >= d->cols || fila < 0 || fila >= d->numFilas() || !d->esDeCuenta(fila))
        return std::nullopt;
    const int g = Datos::grupoDe(*a, fila);
    if (g < 0)
        return std::nullopt;
    SumaGrupo r;
    r.grupo = g;
    auto it = a->sumas.find(col);
    if (it != a->sumas.end() && it->second.vigente) {
        r.suma = it->second.suma[static_cast<std::size_t>(g)];
        r.desbordadas = it->second.desbordadas[static_cast<std::size_t>(g)];
        return r;
    }
    const Datos::Grupo& gr = a->grupos[static_cast<std::size_t>(g)];
    for (int f = gr.primera; f <= gr.ultima; ++f) {
        if (!d->esDeCuenta(f))
            continue;
        const Termino t = d->terminoDe(d->celda(f, col));
        r.suma += t.valor;
        r.desbordadas += t.desbordadas;
    }
    return r;
}

ModeloRejilla::PosicionSubtotal ModeloRejilla::SubtotalPosition() const { return d->posicion; }
void ModeloRejilla::setSubtotalPosition(PosicionSubtotal p) { d->posicion = p; }

bool ModeloRejilla::IsSubtotal(int fila) const
{
    d->comprobarFila(fila);
    return d->filas[fila].agrupacion != Datos::kFilaDeCuenta;
}

int ModeloRejilla::SubtotalGroupColumn(int fila) const
{
    d->comprobarFila(fila);
    return d->filas[fila].agrupacion;
}

QString ModeloRejilla::TituloTotalGeneral() { return QStringLiteral("Total general"); }

long long ModeloRejilla::celdasSumadas() const { return d->sumadas; }

void ModeloRejilla::Subtotal(int colAgrupar, int colTotal, const QString& formato, const QColor& backColor,
                             const QString& patronTitulo)
{
    if (colAgrupar < -1 || colAgrupar >= d->cols)
        throw VbError::subscriptOutOfRange();
    d->comprobarCol(colTotal);

    Datos::Agrupacion* a = d->agrupacion(colAgrupar);
    if (!a) {
        d->agrupaciones.emplace_back();
        a = &d->agrupaciones.back();
        a->columna = colAgrupar;
        a->posicion = d->posicion;
    }

    if (!a->valida || a->posicion != d->posicion) {
        d->reconstruir(*a);
        // Columns summed before are summed again now, so rows that were just
        // inserted do not wait for their own call to show a value.
        for (auto& [c, s] : a->sumas)
            if (c != colTotal && c < d->cols)
                d->sumarColumna(*a, c, s);
    }

    if (!a->tituloEscrito || a->patron != patronTitulo) {
        a->patron = patronTitulo;
        a->tituloEscrito = true;
        d->escribirTitulos(*a);
    }
    if (!a->fondoAplicado || a->fondo != backColor) {
        a->fondo = backColor;
        d->pintarFondo(*a);
    }

    Datos::SumasColumna& s = a->sumas[colTotal];
    if (!s.vigente) {
        s.formato = formato;
        s.leido = es::leerFormato(formato);
        d->sumarColumna(*a, colTotal, s);
    } else if (s.formato != formato) {
        s.formato = formato;
        s.leido = es::leerFormato(formato);
        d->escribirSumas(*a, colTotal, s, true);
    } else {
        d->escribirSumas(*a, colTotal, s, false);
    }
}

} // namespace presupuestos
