#include "db/schema/Esquema.h"

#include "common/VbError.h"
#include "db/Conexion.h"

namespace presupuestos {

namespace {

using Columna = Esquema::Columna;
using Tabla = Esquema::Tabla;
using T = TipoColumna;

Columna col(const char* nombre, T tipo, int tamano = 0) { return {QString::fromLatin1(nombre), tipo, tamano, QString()}; }
Columna col(const char* nombre, T tipo, const char* defecto) { return {QString::fromLatin1(nombre), tipo, 0, QString::fromLatin1(defecto)}; }
Columna texto(const char* nombre, int tamano, const char* defecto = "") { return {QString::fromLatin1(nombre), T::Texto, tamano, QString::fromLatin1(defecto)}; }

// Twelve amount columns, prefijo followed by the month (1..12), from 0.
void meses(std::vector<Columna>& c, const char* prefijo, T tipo)
{
    for (int m = 1; m <= 12; ++m)
        c.push_back({QString::fromLatin1(prefijo) + QString::number(m), tipo, 0, QStringLiteral("0")});
}

std::vector<Columna> operator+(std::vector<Columna> a, const std::vector<Columna>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Monthly debit (D) and credit (H) balances.
std::vector<Columna> saldos()
{
    std::vector<Columna> c;
    meses(c, "D", T::Importe);
    meses(c, "H", T::Importe);
    return c;
}

// A budget row as the journal keeps it, before (A_) or after (D_) an
// operation.
std::vector<Columna> imagen(const char* prefijo, const char* existe)
{
    const QString p = QString::fromLatin1(prefijo);
    std::vector<Columna> c{col(existe, T::Marca)};
    meses(c, prefijo, T::ImporteDiario);
    for (Columna& m : c)
        if (m.tipo == T::ImporteDiario)
            m.nombre = p + QLatin1Char('M') + m.nombre.mid(p.size());
    c.push_back({p + QStringLiteral("Metodo"), T::Entero, 0, QStringLiteral("0")});
    c.push_back({p + QStringLiteral("Manual"), T::Entero, 0, QStringLiteral("0")});
    c.push_back({p + QStringLiteral("Valor"), T::ImporteDiario, 0, QStringLiteral("0")});
    c.push_back({p + QStringLiteral("Ver"), T::Marca, 0, QStringLiteral("1")});
    return c;
}

QStringList clave(std::initializer_list<const char*> nombres)
{
    QStringList r;
    for (const char* n : nombres)
        r << QString::fromLatin1(n);
    return r;
}

std::vector<Tabla> gestion()
{
    std::vector<Columna> presupuesto{col("Cod_Empresa", T::Corto), col("Cod_Ejercicio", T::Corto), texto("Cuenta", 12), col("Dpto", T::Entero)};
    meses(presupuesto, "M", T::Importe);
    presupuesto.push_back(col("Metodo_Calculo", T::Entero, "0"));
    presupuesto.push_back(col("Modificacion_Manual", T::Entero, "0"));
    presupuesto.push_back(col("Valor", T::Importe, "0"));
    presupuesto.push_back(col("Ver", T::Marca, "1"));
    return {
        {QStringLiteral("Empresas"),
         // Digits of an account at each level of the chart, from the first: "1,2,3,4,8".
         {col("Cod_Empresa", T::Corto), texto("Nombre", 200), col("Ejercicio_Actual", T::Corto), texto("Digitos_Niveles", 50)},
         clave({"Cod_Empresa"})},
        {QStringLiteral("Departamentos"), {col("Cod_Empresa", T::Corto), col("Codigo", T::Entero), texto("Nombre", 200)}, clave({"Cod_Empresa", "Codigo"})},
        {QStringLiteral("Cuentas"),
         {col("Cod_Empresa", T::Corto), col("Cod_Ejercicio", T::Corto), texto("Cuenta", 12), texto("Nombre", 200)},
         clave({"Cod_Empresa", "Cod_Ejercicio", "Cuenta"})},
        // Tipo 0: a category (a tree through Padre); 1: an account line, whose
        // Texto is a 4-character prefix or a concept's code.
        {QStringLiteral("Config_Balances"),
         {col("Cod_Empresa", T::Corto), col("TipoBalance", T::Entero), col("Codigo", T::Entero), col("Tipo", T::Entero), texto("Texto", 200),
          col("Padre", T::Entero, "0"), col("Ver", T::Marca, "1")},
         clave({"Cod_Empresa", "TipoBalance", "Codigo"})},
        {QStringLiteral("Presupuestos_Conceptos"), {texto("Codigo", 12), texto("Nombre", 200)}, clave({"Codigo"})},
        {QStringLiteral("Presupuestos"), presupuesto, clave({"Cod_Empresa", "Cod_Ejercicio", "Cuenta", "Dpto"})},
        // Monthly balances, company-wide and per department.
        {QStringLiteral("Acumulados"), std::vector<Columna>{col("Cod_Empresa", T::Corto), col("Cod_Ejercicio", T::Corto), texto("Cuenta", 12)} + saldos(),
         clave({"Cod_Empresa", "Cod_Ejercicio", "Cuenta"})},
        {QStringLiteral("Acumulados_Dpto"),
         std::vector<Columna>{col("Cod_Empresa", T::Corto), col("Cod_Ejercicio", T::Corto), texto("Cuenta", 12), col("Dpto", T::Entero)} + saldos(),
         clave({"Cod_Empresa", "Cod_Ejercicio", "Cuenta", "Dpto"})},
        // Name of the retail database, as three-part names use it ("[Pelvor]").
        {QStringLiteral("Configuracion"), {texto("BDPelvor", 128)}, {}},
    };
}

std::vector<Tabla> diario()
{
    return {
        // One row per user operation (a paste, an applied method, an import,
        // an undo...): what it was, who did it and when. Tipo: tecleo,
        // pegado, borrado, metodo, dependientes, visibilidad, importacion,
        // deshacer, rehacer.
        {QStringLiteral("Presupuestos_Operaciones"),
         {col("Id", T::Largo), col("Cod_Empresa", T::Corto), texto("Tipo", 20), texto("Descripcion", 200), texto("Usuario", 128),
          col("Fecha", T::FechaHora)},
         clave({"Id"})},
        // One row per budget row an operation changed, with the row before
        // (Existia = 0: there was none) and after it (Existe = 0: the
        // operation removed it). What the operation shares is kept once,
        // above: an import of tens of thousands of rows writes only their
        // figures here.
        {QStringLiteral("Presupuestos_Cambios"),
         std::vector<Columna>{col("Id", T::Numerador), col("Operacion", T::Largo), col("Cod_Empresa", T::Corto), col("Cod_Ejercicio", T::Corto),
                              texto("Cuenta", 12), col("Dpto", T::Entero)}
             + imagen("A_", "Existia") + imagen("D_", "Existe"),
         clave({"Id"})},
    };
}

std::vector<Tabla> retail()
{
    return {
        // Cod_EmpresaC: the company's code in the accounting system.
        {QStringLiteral("Empresas_Contabilidad"), {col("Cod_Empresa", T::Corto), col("Cod_EmpresaC", T::Corto), texto("Nombre", 200, "''")},
         clave({"Cod_Empresa", "Cod_EmpresaC"})},
        // Daily figures per store and till.
        {QStringLiteral("Almacen_Acumulados_2"),
         {col("Cod_Empresa", T::Corto), col("Cod_Almacen", T::Entero), col("Fecha", T::Fecha), col("Caja", T::Corto, "1"), col("Tickets", T::Entero, "0"),
          col("Importe", T::Importe, "0")},
         clave({"Cod_Empresa", "Cod_Almacen", "Fecha", "Caja"})},
        // Monthly sales per store and product family.
        {QStringLiteral("Almacen_Acumulados"),
         {col("Cod_Empresa", T::Corto), col("Cod_Almacen", T::Entero), col("Cod_Ejercicio", T::Corto), col("Mes", T::Corto), texto("Familia", 10),
          col("Ventas_Unidades", T::Importe, "0"), col("Ventas_Importe", T::Importe, "0")},
         clave({"Cod_Empresa", "Cod_Almacen", "Cod_Ejercicio", "Mes", "Familia"})},
    };
}

// The columns and the key in the engine's types: a key of one column is
// said beside it.
QString cuerpo(const Controlador& m, const Tabla& t)
{
    QStringList partes;
    for (const Columna& c : t.columnas) {
        QString d = c.nombre + QLatin1Char(' ') + m.tipoColumna(c.tipo, c.tamano);
        if (c.tipo != T::Numerador)
            d += QStringLiteral(" NOT NULL");
        if (!c.defecto.isEmpty())
            d += QStringLiteral(" DEFAULT ") + c.defecto;
        if (t.clave.size() == 1 && t.clave.front() == c.nombre)
            d += QStringLiteral(" PRIMARY KEY");
        partes << d;
    }
    if (t.clave.size() > 1)
        partes << QStringLiteral("PRIMARY KEY (%1)").arg(t.clave.join(QStringLiteral(", ")));
    return QStringLiteral("\n    ") + partes.join(QStringLiteral(",\n    ")) + QLatin1Char('\n');
}

QStringList columnas(const Tabla& t)
{
    QStringList r;
    for (const Columna& c : t.columnas)
        r << c.nombre;
    return r;
}

} // namespace

const std::vector<Tabla>& Esquema::tablas(Parte parte)
{
    static const std::vector<Tabla> g = gestion(), d = diario(), r = retail();
    return parte == Parte::Gestion ? g : parte == Parte::Diario ? d : r;
}

const std::vector<Esquema::Indice>& Esquema::indices(Parte parte)
{
    static const std::vector<Indice> g{
        {QStringLiteral("IX_Presupuestos_Metodo"), QStringLiteral("Presupuestos"), clave({"Cod_Empresa", "Cod_Ejercicio", "Metodo_Calculo"})}};
    // A cell's history is found by its account and department (the few
    // rows of other years and companies that share them are left out
    // after; the row's Id comes with every entry, so the newest comes first
    // without sorting); the worksheets read each operation another user
    // committed by its number.
    static const std::vector<Indice> d{
        {QStringLiteral("IX_Presupuestos_Cambios_Fila"), QStringLiteral("Presupuestos_Cambios"), clave({"Cuenta", "Dpto"})},
        {QStringLiteral("IX_Presupuestos_Cambios_Operacion"), QStringLiteral("Presupuestos_Cambios"), clave({"Operacion"})}};
    static const std::vector<Indice> r;
    return parte == Parte::Gestion ? g : parte == Parte::Diario ? d : r;
}

namespace {
// A part's statements but for setting an earlier journal apart.
QStringList crear(Controlador& motor, Esquema::Parte parte, const QString& prefijo)
{
    using Parte = Esquema::Parte;
    using Indice = Esquema::Indice;
    QStringList r;
    for (const Tabla& t : Esquema::tablas(parte))
        r << motor.crearTabla(prefijo, t.nombre, cuerpo(motor, t));
    for (const Indice& i : Esquema::indices(parte))
        r << motor.crearIndice(i.nombre, i.tabla, i.columnas.join(QStringLiteral(", ")));
    if (parte == Parte::Diario) {
        r << motor.traerDiarioAnterior(columnas(Esquema::tablas(parte).back()));
        // Numbers no two users' transactions share, where the engine has
        // sequences.
        r << motor.crearSecuencia(QStringLiteral("Presupuestos_Operaciones_Id"), QStringLiteral("Presupuestos_Operaciones"));
    }
    return r;
}
} // namespace

QStringList Esquema::sentencias(Controlador& motor, Parte parte, const QString& prefijo)
{
    QStringList r;
    if (parte == Parte::Diario)
        r << motor.apartarDiarioAnterior();
    return r + crear(motor, parte, prefijo);
}

QString Esquema::guionSqlServer(const QString& baseRetail)
{
    auto c = Conexion::grabadoraSqlServer();
    Controlador& m = c->controlador();
    QString guion;
    const auto parte = [&](const QString& titulo, const QStringList& sentencias) {
        guion += QStringLiteral("-- %1\n\n").arg(titulo);
        for (const QString& s : sentencias)
            guion += s + QStringLiteral("\nGO\n\n");
    };
    parte(QStringLiteral("Management database"), sentencias(m, Parte::Gestion));
    parte(QStringLiteral("Change journal (optional: without it undo covers the session and there is no history)"),
          sentencias(m, Parte::Diario));
    if (!baseRetail.isEmpty())
        parte(QStringLiteral("Retail database %1 (it must exist)").arg(baseRetail), sentencias(m, Parte::Retail, m.crearBaseRetail(baseRetail)));
    return guion;
}

namespace {
void ejecutar(Conexion& c, const QStringList& sentencias)
{
    for (const QString& s : sentencias) {
        try {
            c.controlador().ejecutarPropia(s);
        } catch (const VbError& e) {
            throw VbError(VbError::DatabaseError, QStringLiteral("No se puede crear el esquema: %1\n%2").arg(e.description(), s));
        }
    }
}
} // namespace

void Esquema::crearGestion(Conexion& c)
{
    ejecutar(c, sentencias(c.controlador(), Parte::Gestion));
    crearDiario(c);
}

void Esquema::crearDiario(Conexion& c)
{
    Controlador& m = c.controlador();
    const QStringList antes = m.apartarDiarioAnterior();
    if (antes.isEmpty()) {
        ejecutar(c, crear(m, Parte::Diario, QString()));
        return;
    }
    // Bringing an earlier journal over is all or nothing.
    m.ejecutarPropia(QStringLiteral("BEGIN TRANSACTION"));
    try {
        ejecutar(c, antes + crear(m, Parte::Diario, QString()));
        m.ejecutarPropia(QStringLiteral("COMMIT TRANSACTION"));
    } catch (...) {
        try {
            m.ejecutarPropia(QStringLiteral("ROLLBACK TRANSACTION"));
        } catch (const std::exception&) {
        }
        throw;
    }
}

QString Esquema::crearRetail(Conexion& c, const QString& nombreBaseDatos)
{
    QString nombre = nombreBaseDatos;
    if (nombre.startsWith(QLatin1Char('[')) && nombre.endsWith(QLatin1Char(']')))
        nombre = nombre.mid(1, nombre.size() - 2);
    const QString prefijo = c.controlador().crearBaseRetail(nombre);
    ejecutar(c, sentencias(c.controlador(), Parte::Retail, prefijo));
    return prefijo;
}

} // namespace presupuestos
