#include "worksheet/core/EscrituraHoja.h"

#include "calculation/clsCalculo.h"
#include "common/NumerosEs.h"
#include "common/VbError.h"
#include "db/Conexion.h"
#include "db/Sql.h"
#include "sesion/Sesion.h"
#include "worksheet/core/ComprobadorTotales.h"
#include "worksheet/core/RepositorioHoja.h"

#include <exception>

namespace presupuestos {

using namespace hoja;

namespace {
bool esVentas(const QString& cuenta) { return cuenta.startsWith(QLatin1String("70")); }

RejillaPresupuesto::Valores valores(const clsDBPresupuesto::FilaGuardada& f)
{
    RejillaPresupuesto::Valores v;
    v.meses = f.meses;
    v.metodo = f.metodo;
    v.manual = f.manual;
    v.valor = f.valor;
    return v;
}
} // namespace

EscrituraHoja::EscrituraHoja(const Sesion& sesion, RejillaPresupuesto& rejilla, clsDBPresupuesto& store, Avisos avisos)
    : sesion_(sesion), r_(rejilla), store_(store), avisos_(std::move(avisos))
{
}

void EscrituraHoja::escribirCelda(int fila, int col, Currency valor, bool comprobar)
{
    if (fila < 1 || fila >= r_.Rows() || !r_.esCuenta(fila) || !esMes(col))
        throw VbError::subscriptOutOfRange();
    const int mes = col - kPrimerMes + 1;
    const int decimales = r_.aspecto().decimales;
    const Currency mostrado = valor.rounded(decimales);
    if (comprobar) {
        ComprobadorTotales comprobador(r_);
        comprobador.cambiar(fila, col, mostrado);
        comprobador.comprobar();
    }
    const Currency anterior = r_.mes(fila, mes);
    const QString cuenta = r_.cuenta(fila);
    const qint16 dpto = r_.dpto(fila);
    // A batch writes a row's months one after another: the row is noted once.
    if (enLote_ && (filasLote_.empty() || *filasLote_.rbegin() != fila))
        filasLote_.insert(fila);

    // Whether the year adds up to nothing once this month is in.
    const Suma total = r_.sumaMeses(fila) - r_.mes(fila, mes).raw() + mostrado.raw();

    // Shown as a reload shows what is stored: rounded halves to even.
    avisarCompletado(r_.ponerMes(fila, mes, mostrado));
    std::optional<clsDBPresupuesto::FilaGuardada> guardada;
    bool reiniciar = false;
    try {
        if (total != 0) {
            store_.ActualizacionManual(cuenta, dpto, static_cast<qint16>(mes), valor);
        } else {
            // A row whose year adds up to nothing starts clean: no method, no
            // marks, all months zero - but only if the database agrees.
            // Another user may have stored months this worksheet does not
            // show yet; those stay, and the row is shown as stored.
            Transaccion t(*sesion_.conexion);
            store_.ActualizacionManual(cuenta, dpto, static_cast<qint16>(mes), valor);
            guardada = store_.Leer(cuenta, dpto);
            reiniciar = !guardada || guardada->todoCero();
            if (reiniciar) {
                clsPresupItem item;
                item.Cuenta = cuenta;
                item.Dpto = dpto;
                store_.Actualizar(item);
            }
            t.confirmar();
        }
    } catch (const std::exception&) {
        // The cell shows what the database holds, never a figure it refused.
        if (!mostrarGuardada(fila))
            avisarCompletado(r_.ponerMes(fila, mes, anterior));
        throw;
    }
    if (esVentas(cuenta)) {
        dptosVentas_.insert(dpto);
        if (enLote_)
            ventasPendientes_ = true;
        else if (avisos_.ventasCambiadas)
            avisos_.ventasCambiadas();
    }
    if (guardada && !reiniciar) {
        avisarCompletado(r_.mostrar(fila, valores(*guardada)));
        return;
    }
    // The month's mark gives it the hand-typed colour; a row started clean has none.
    r_.datos().ponerMascara(fila - 1, reiniciar ? 0 : r_.mascara(fila) | (1 << (mes - 1)));
}

bool EscrituraHoja::mostrarGuardada(int fila)
{
    if (fila < 1 || fila >= r_.Rows() || !r_.esCuenta(fila))
        return false;
    try {
        const auto f = store_.Leer(r_.cuenta(fila), r_.dpto(fila));
        avisarCompletado(r_.mostrar(fila, valores(f.value_or(clsDBPresupuesto::FilaGuardada{}))));
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void EscrituraHoja::enLote(const std::function<void()>& cuerpo)
{
    if (sesion_.conexion->enTransaccion()) {
        cuerpo();
        return;
    }
    filasLote_.clear();
    try {
        repetirTrasInterbloqueo(*sesion_.conexion, [&] { loteUnaVez(cuerpo); });
    } catch (const VbError& e) {
        // Given up after deadlocks: every attempt was rolled back, so the
        // rows any of them touched show the database again.
        if (e.causa() == VbError::Causa::Interbloqueo)
            for (int f : filasLote_)
                mostrarGuardada(f);
        filasLote_.clear();
        throw;
    }
}

void EscrituraHoja::loteUnaVez(const std::function<void()>& cuerpo)
{
    Transaccion t(*sesion_.conexion);
    enLote_ = true;
    ventasPendientes_ = false;
    std::exception_ptr fallo;
    try {
        cuerpo();
        // Sales changed by the batch move the rows that follow them once, at
        // the end, inside the same transaction.
        if (ventasPendientes_) {
            ventasPendientes_ = false;
            recalcularDependenciasEnLote();
        }
    } catch (...) {
        fallo = std::current_exception();
    }
    enLote_ = false;
    ventasPendientes_ = false;
    avisarCompletadoLote();
    // Chosen to break a deadlock: nothing of it is kept, and it is run again whole.
    if (fallo) {
        try {
            std::rethrow_exception(fallo);
        } catch (const VbError& e) {
            // The rows it touched stay known, to be shown as stored if no
            // attempt gets through.
            if (e.causa() == VbError::Causa::Interbloqueo)
                throw;
        } catch (...) {
        }
    }
    // What was stored before a failure stays stored; if even that cannot be
    // kept, every row of the batch shows the database again.
    try {
        t.confirmar();
    } catch (...) {
        for (int f : filasLote_)
            mostrarGuardada(f);
        if (!fallo)
            fallo = std::current_exception();
    }
    filasLote_.clear();
    if (fallo)
        std::rethrow_exception(fallo);
}

void EscrituraHoja::escribirLote(const std::vector<Celda>& celdas, IProgreso* progreso)
{
    // Every total the batch reaches is checked before the first cell is stored.
    ComprobadorTotales comprobador(r_);
    for (const Celda& c : celdas)
        comprobador.cambiar(c.fila, c.col, c.valor.rounded(r_.aspecto().decimales));
    comprobador.comprobar();
    // Nor is any cell stored when one of them cannot be kept exactly.
    for (const Celda& c : celdas)
        sql::comprobarImporte(*sesion_.conexion, c.valor);
    enLote([&] {
        // The journal reads the rows the batch writes in a few statements.
        if (Diario* diario = store_.diario()) {
            std::vector<std::pair<QString, qint16>> filas;
            int anterior = -1;
            for (const Celda& c : celdas)
                if (c.fila != anterior) {
                    anterior = c.fila;
                    filas.emplace_back(r_.cuenta(c.fila), r_.dpto(c.fila));
                }
            diario->prever(filas, sesion_.ejercicio);
        }
        int hechas = 0;
        for (const Celda& c : celdas) {
            if (avisos_.antesDeCelda)
                avisos_.antesDeCelda(r_.mes(c.fila, c.col - 3));
            escribirCelda(c.fila, c.col, c.valor, false);
            if (progreso)
                progreso->hecho(hechas++);
        }
    });
}

std::vector<EscrituraHoja::Celda> EscrituraHoja::celdasPegado(const LectorPortapapeles::Bloque& b, int fila, int filaFin, int col,
                                                              int colFin, bool* pasaDelFinal) const
{
    const ModeloRejilla& m = r_;
    std::vector<Celda> celdas;
    *pasaDelFinal = false;
    if (b.unValor()) {
        const Currency v = b.valores.front().front();
        for (int r = fila; r <= filaFin; ++r) {
            if (m.IsSubtotal(r))
                continue;
            for (int c = col; c <= std::min(colFin, kUltimoMes); ++c)
                celdas.push_back({r, c, v});
        }
        return celdas;
    }
    for (std::size_t i = 0; i < b.valores.size(); ++i) {
        const int r = fila + static_cast<int>(i);
        // A total row takes its line of the block: nothing shifts past it.
        if (r >= m.Rows() || m.IsSubtotal(r))
            continue;
        for (std::size_t j = 0; j < b.valores[i].size(); ++j) {
            const int c = col + static_cast<int>(j);
            if (c <= kUltimoMes)
                celdas.push_back({r, c, b.valores[i][j]});
        }
    }
    *pasaDelFinal = fila + b.lineas > m.Rows();
    return celdas;
}

std::vector<EscrituraHoja::Celda> EscrituraHoja::celdasBorrado(int fila, int filaFin, int col, int colFin) const
{
    const ModeloRejilla& m = r_;
    std::vector<Celda> celdas;
    for (int r = std::max(fila, 1); r <= filaFin && r < m.Rows(); ++r) {
        if (m.IsSubtotal(r))
            continue;
        for (int c = std::max(col, kPrimerMes); c <= std::min(colFin, kUltimoMes); ++c)
            celdas.push_back({r, c, Currency()});
    }
    return celdas;
}

std::vector<EscrituraHoja::Celda> EscrituraHoja::celdasRelleno(int fila, int filaFin, int col, int colFin, Relleno sentido) const
{
    std::vector<Celda> celdas;
    fila = std::max(fila, 1);
    filaFin = std::min(filaFin, r_.Rows() - 1);
    col = std::max(col, kPrimerMes);
    colFin = std::min(colFin, kUltimoMes);
    if (fila > filaFin || col > colFin)
        return celdas;
    // A month no amount can hold is not copied anywhere.
    const auto copiar = [&](int r, int c, int filaOrigen, int colOrigen) {
        bool fuera = false;
        const Suma v = r_.datos().mes(filaOrigen - 1, colOrigen - kPrimerMes + 1, &fuera);
        if (!fuera)
            celdas.push_back({r, c, Currency::fromRaw(static_cast<std::int64_t>(v))});
    };
    if (sentido == Relleno::Abajo) {
        int origen = fila;
        if (fila == filaFin) {
            origen = fila - 1;
            while (origen >= 1 && !r_.esCuenta(origen))
                --origen;
        } else {
            while (origen < filaFin && !r_.esCuenta(origen))
                ++origen;
            fila = origen + 1;
        }
        if (origen < 1 || !r_.esCuenta(origen))
            return celdas;
        for (int r = fila; r <= filaFin; ++r)
            if (r_.esCuenta(r))
                for (int c = col; c <= colFin; ++c)
                    copiar(r, c, origen, c);
        return celdas;
    }
    const int origen = col == colFin ? col - 1 : col;
    if (origen < kPrimerMes)
        return celdas;
    for (int r = fila; r <= filaFin; ++r)
        if (r_.esCuenta(r))
            for (int c = origen + 1; c <= colFin; ++c)
                copiar(r, c, r, origen);
    return celdas;
}

void EscrituraHoja::aplicarMetodo(int fila, const clsPresupItem& item)
{
    const bool enRejilla = fila >= 1 && fila < r_.Rows() && r_.esCuenta(fila);
    const int decimales = r_.aspecto().decimales;
    if (enRejilla) {
        ComprobadorTotales comprobador(r_);
        for (int i = 0; i < 12; ++i)
            comprobador.cambiar(fila, kPrimerMes + i, item.Mes(i).rounded(decimales));
        comprobador.comprobar();
    }
    for (int i = 0; i < 12; ++i)
        sql::comprobarImporte(*sesion_.conexion, item.Mes(i));
    sql::comprobarImporte(*sesion_.conexion, item.Valor);
    enLote([&] { guardarMetodo(fila, item, enRejilla); });
}

void EscrituraHoja::guardarMetodo(int fila, const clsPresupItem& item, bool enRejilla)
{
    store_.Actualizar(item);
    if (enRejilla) {
        filasLote_.insert(fila);
        // The months as stored, which is what a reload shows.
        const clsPresupItem guardado = store_.guardadoPorUltimoActualizar(item);
        RejillaPresupuesto::Valores v;
        for (int i = 0; i < 12; ++i)
            v.meses[static_cast<std::size_t>(i)] = guardado.Mes(i);
        v.metodo = item.MetodoCalc;
        v.valor = item.Valor;
        // Only the display is rounded; the stored months keep four decimals.
        avisarCompletado(r_.mostrar(fila, v));
    }
    if (esVentas(item.Cuenta)) {
        dptosVentas_.insert(item.Dpto);
        ventasPendientes_ = true;
    }
}

void EscrituraHoja::aplicarMetodoEnFilas(const std::vector<int>& filas, qint32 metodo, Currency valor, clsCalculo& calculo,
                                         IProgreso* progreso)
{
    int hechas = 0;
    const int decimales = r_.aspecto().decimales;
    // Every row is computed before any is stored, so that every total the
    // batch reaches is checked first.
    std::vector<std::pair<int, clsPresupItem>> items;
    ComprobadorTotales comprobador(r_);
    for (int fila : filas) {
        if (!r_.esCuenta(fila))
            continue;
        clsPresupItem item;
        item.Cuenta = r_.cuenta(fila);
        item.Dpto = r_.dpto(fila);
        item.MetodoCalc = metodo;
        item.Valor = valor;
        calculo.setDpto(item.Dpto);
        calculo.Calcular(metodo, item.Cuenta, valor);
        for (int i = 0; i < 12; ++i) {
            item.setMes(i, calculo.Mes(i));
            comprobador.cambiar(fila, kPrimerMes + i, item.Mes(i).rounded(decimales));
        }
        items.emplace_back(fila, item);
        if (progreso)
            progreso->hecho(++hechas);
    }
    // Nothing is stored when one total, or one amount, cannot be kept.
    comprobador.comprobar();
    for (const auto& [fila, item] : items)
        for (int i = 0; i < 12; ++i)
            sql::comprobarImporte(*sesion_.conexion, item.Mes(i));
    sql::comprobarImporte(*sesion_.conexion, valor);
    enLote([&] {
        if (Diario* diario = store_.diario()) {
            std::vector<std::pair<QString, qint16>> claves;
            for (const auto& [fila, item] : items)
                claves.emplace_back(item.Cuenta, item.Dpto);
            diario->prever(claves, sesion_.ejercicio);
        }
        for (const auto& [fila, item] : items) {
            guardarMetodo(fila, item, true);
            if (progreso)
                progreso->hecho(++hechas);
        }
    });
}

void EscrituraHoja::recalcularDependencias()
{
    enLote([this] { recalcularDependenciasEnLote(); });
}

void EscrituraHoja::recalcularDependenciasEnLote()
{
    // Only the departments whose sales changed; all of them when nobody
    // said which.
    std::vector<qint16> dptos(dptosVentas_.begin(), dptosVentas_.end());
    dptosVentas_.clear();
    auto filas = RepositorioHoja(*sesion_.conexion).filasSobreVentas(sesion_.empresa->CodigoEmpresa(), sesion_.ejercicio, dptos);
    const qint16 ejercicio = sesion_.ejercicio;
    // Locked together, in the one order every user locks in, before any is
    // read; what another user typed by hand meanwhile is read as it is now.
    if (Diario* diario = store_.diario()) {
        std::vector<std::pair<QString, qint16>> claves;
        for (const auto& f : filas)
            claves.emplace_back(f.cuenta, f.dpto);
        diario->prever(claves, ejercicio);
        if (sesion_.conexion->bloqueaPorClave()) {
            const Diario::Imagenes ahora = diario->leerVarias(claves, ejercicio);
            std::erase_if(filas, [&](RepositorioHoja::FilaVentas& f) {
                const auto it = ahora.find(ClaveFila{f.cuenta, f.dpto, ejercicio});
                if (it == ahora.end() || !it->second.existe || it->second.metodo != 6)
                    return true;
                f.valor = it->second.valor;
                f.manual = it->second.manual;
                f.meses = it->second.meses;
                return false;
            });
        }
    }
    clsCalculo calculo(sesion_);
    calculo.setEjercicio(sesion_.ejercicio);
    clsPresupItem item;
    for (const auto& f : filas) {
        calculo.setDpto(f.dpto);
        calculo.Calcular(6, f.cuenta, f.valor);
        item.Cuenta = f.cuenta;
        item.Dpto = f.dpto;
        item.MetodoCalc = 6;
        item.Valor = f.valor;
        // Months typed by hand stay as they were typed, with their mark;
        // only the others follow the sales.
        item.Manual = f.manual;
        for (int i = 0; i < 12; ++i)
            item.setMes(i, (f.manual >> i) & 1 ? f.meses[static_cast<std::size_t>(i)] : calculo.Mes(i));
        store_.Actualizar(item);
        // The months as stored, which is what a reload shows.
        const clsPresupItem guardado = store_.guardadoPorUltimoActualizar(item);
        RejillaPresupuesto::Valores v;
        for (int i = 0; i < 12; ++i)
            v.meses[static_cast<std::size_t>(i)] = guardado.Mes(i);
        // The row follows on screen too when the worksheet shows it.
        const int fila = r_.fila(f.cuenta, f.dpto);
        if (fila > 0) {
            filasLote_.insert(fila);
            v.metodo = 6;
            v.valor = f.valor;
            v.manual = f.manual;
            avisarCompletado(r_.mostrar(fila, v));
        }
    }
}

} // namespace presupuestos
