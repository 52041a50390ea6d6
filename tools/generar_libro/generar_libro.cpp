// Writes an .xlsx workbook from a plain text description, for the tests and
// the benchmark of the import. It links libxlsxwriter and nothing of the
// system itself: the workbooks it writes are read back by a different
// program, as a user's workbooks would be.
//
//   generar_libro [--constante] SALIDA.xlsx [DESCRIPCION]
//
// The description comes from the file named, or from standard input. One
// instruction per line:
//
//   # comment
//   hoja NOMBRE        starts a new sheet (cells before the first "hoja"
//                      go to a sheet named "Hoja1")
//   activa             the current sheet is the one the workbook opens on
//   12: a;b;c          row 12, cells from column A on
//   C12: a;b;c         the same from column C on
//
// Cells are separated by ";". An empty cell writes nothing. A value that
// reads whole as a number is written as a number, anything else as text;
// "quoted" values are always text ("" inside stands for one quote, and a
// ";" inside quotes does not separate). Prefixed values:
//
//   #b:1  #b:0         Boolean
//   #r:uno|dos|tres    rich text made of runs (every second run bold)
//   #fn:=A1+1|5        formula with its cached numeric result
//   #fs:=A1&"x"|ax     formula with its cached text result
//
// --constante writes in libxlsxwriter's constant-memory mode, which puts
// texts inline in the sheet instead of in the shared table; rows must then
// come in ascending order.

#include <xlsxwriter.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

struct Hoja {
    lxw_worksheet* hoja = nullptr;
};

[[noreturn]] void fallar(const std::string& mensaje, int linea = 0)
{
    if (linea > 0)
        std::cerr << "generar_libro: linea " << linea << ": " << mensaje << '\n';
    else
        std::cerr << "generar_libro: " << mensaje << '\n';
    std::exit(1);
}

std::string recortar(const std::string& s)
{
    const auto a = s.find_first_not_of(" \t\r");
    if (a == std::string::npos)
        return std::string();
    const auto b = s.find_last_not_of(" \t\r");
    return s.substr(a, b - a + 1);
}

// Cells of a row, keeping whether each was quoted.
struct Celda {
    std::string texto;
    bool entrecomillada = false;
};

std::vector<Celda> partir(const std::string& s, int linea)
{
    std::vector<Celda> celdas;
    Celda actual;
    bool enComillas = false;
    std::string bruto;
    for (std::size_t i = 0; i < s.size(); ++i) {
        const char ch = s[i];
        if (enComillas) {
            if (ch == '"') {
                if (i + 1 < s.size() && s[i + 1] == '"') {
                    actual.texto += '"';
                    ++i;
                } else {
                    enComillas = false;
                }
            } else {
                actual.texto += ch;
            }
        } else if (ch == '"' && recortar(bruto).empty() && !actual.entrecomillada) {
            enComillas = true;
            actual.entrecomillada = true;
        } else if (ch == ';') {
            if (!actual.entrecomillada)
                actual.texto = recortar(bruto);
            celdas.push_back(actual);
            actual = Celda();
            bruto.clear();
        } else {
            bruto += ch;
        }
    }
    if (enComillas)
        fallar("comillas sin cerrar", linea);
    if (!actual.entrecomillada)
        actual.texto = recortar(bruto);
    celdas.push_back(actual);
    return celdas;
}

bool esNumero(const std::string& s, double& valor)
{
    if (s.empty())
        return false;
    char* fin = nullptr;
    errno = 0;
    valor = std::strtod(s.c_str(), &fin);
    return errno == 0 && fin && *fin == '\0';
}

// "C12" -> row 11, column 2 (zero-based). False when it is not a reference.
bool referencia(const std::string& s, lxw_row_t& fila, lxw_col_t& columna)
{
    std::size_t i = 0;
    unsigned long c = 0;
    while (i < s.size() && s[i] >= 'A' && s[i] <= 'Z')
        c = c * 26 + static_cast<unsigned long>(s[i++] - 'A' + 1);
    if (i == s.size())
        return false;
    unsigned long f = 0;
    for (std::size_t j = i; j < s.size(); ++j) {
        if (s[j] < '0' || s[j] > '9')
            return false;
        f = f * 10 + static_cast<unsigned long>(s[j] - '0');
    }
    if (f == 0 || f > LXW_ROW_MAX || c > LXW_COL_MAX)
        return false;
    fila = static_cast<lxw_row_t>(f - 1);
    columna = static_cast<lxw_col_t>(c == 0 ? 0 : c - 1);
    return true;
}

void comprobar(lxw_error e, int linea)
{
    if (e != LXW_NO_ERROR)
        fallar(lxw_strerror(e), linea);
}

void escribir(lxw_workbook* libro, lxw_worksheet* hoja, lxw_format* negrita, lxw_row_t fila, lxw_col_t columna,
              const Celda& celda, int linea)
{
    const std::string& t = celda.texto;
    if (celda.entrecomillada) {
        comprobar(worksheet_write_string(hoja, fila, columna, t.c_str(), nullptr), linea);
        return;
    }
    if (t.empty())
        return;
    double numero = 0;
    if (t.rfind("#b:", 0) == 0) {
        comprobar(worksheet_write_boolean(hoja, fila, columna, t.substr(3) == "1", nullptr), linea);
    } else if (t.rfind("#r:", 0) == 0) {
        std::vector<std::string> trozos;
        std::string resto = t.substr(3);
        for (std::size_t p; (p = resto.find('|')) != std::string::npos; resto = resto.substr(p + 1))
            trozos.push_back(resto.substr(0, p));
        trozos.push_back(resto);
        std::vector<lxw_rich_string_tuple> tuplas(trozos.size());
        std::vector<lxw_rich_string_tuple*> punteros;
        for (std::size_t i = 0; i < trozos.size(); ++i) {
            tuplas[i].format = (i % 2) ? negrita : nullptr;
            tuplas[i].string = const_cast<char*>(trozos[i].c_str());
            punteros.push_back(&tuplas[i]);
        }
        punteros.push_back(nullptr);
        comprobar(worksheet_write_rich_string(hoja, fila, columna, punteros.data(), nullptr), linea);
    } else if (t.rfind("#fn:", 0) == 0 || t.rfind("#fs:", 0) == 0) {
        const std::string cuerpo = t.substr(4);
        const auto p = cuerpo.rfind('|');
        if (p == std::string::npos)
            fallar("falta el resultado de la formula", linea);
        const std::string formula = cuerpo.substr(0, p);
        const std::string resultado = cuerpo.substr(p + 1);
        if (t[2] == 'n') {
            if (!esNumero(resultado, numero))
                fallar("el resultado de la formula no es un numero", linea);
            comprobar(worksheet_write_formula_num(hoja, fila, columna, formula.c_str(), nullptr, numero), linea);
        } else {
            comprobar(worksheet_write_formula_str(hoja, fila, columna, formula.c_str(), nullptr, resultado.c_str()), linea);
        }
    } else if (esNumero(t, numero)) {
        comprobar(worksheet_write_number(hoja, fila, columna, numero, nullptr), linea);
    } else {
        comprobar(worksheet_write_string(hoja, fila, columna, t.c_str(), nullptr), linea);
    }
    (void)libro;
}

} // namespace

int main(int argc, char** argv)
{
    static const char* const kUso = "uso: generar_libro [--constante] SALIDA.xlsx [DESCRIPCION]\n";
    bool constante = false;
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--constante") {
            constante = true;
        } else if (a == "--help" || a == "-h") {
            std::cout << kUso;
            return 0;
        } else if (a.size() > 1 && a[0] == '-') {
            // An option it does not know is no name for a workbook.
            std::cerr << "generar_libro: opción desconocida " << a << '\n' << kUso;
            return 2;
        } else {
            args.push_back(a);
        }
    }
    if (args.empty() || args.size() > 2) {
        std::cerr << kUso;
        return 2;
    }

    std::ifstream fichero;
    if (args.size() == 2) {
        fichero.open(args[1]);
        if (!fichero)
            fallar("no se puede abrir " + args[1]);
    }
    std::istream& entrada = args.size() == 2 ? static_cast<std::istream&>(fichero) : std::cin;

    lxw_workbook_options opciones{};
    opciones.constant_memory = constante ? LXW_TRUE : LXW_FALSE;
    lxw_workbook* libro = workbook_new_opt(args[0].c_str(), &opciones);
    if (!libro)
        fallar("no se puede crear " + args[0]);
    lxw_format* negrita = workbook_add_format(libro);
    format_set_bold(negrita);

    lxw_worksheet* hoja = nullptr;
    std::string linea;
    int numero = 0;
    while (std::getline(entrada, linea)) {
        ++numero;
        const std::string l = recortar(linea);
        if (l.empty() || l[0] == '#')
            continue;
        if (l.rfind("hoja ", 0) == 0 || l == "hoja") {
            const std::string nombre = recortar(l.substr(4));
            hoja = workbook_add_worksheet(libro, nombre.empty() ? nullptr : nombre.c_str());
            if (!hoja)
                fallar("no se puede crear la hoja " + nombre, numero);
            continue;
        }
        if (!hoja)
            hoja = workbook_add_worksheet(libro, "Hoja1");
        if (l == "activa") {
            worksheet_activate(hoja);
            continue;
        }
        const auto dosPuntos = l.find(':');
        if (dosPuntos == std::string::npos)
            fallar("instruccion desconocida: " + l, numero);
        const std::string inicio = recortar(l.substr(0, dosPuntos));
        lxw_row_t fila = 0;
        lxw_col_t columna = 0;
        double n = 0;
        if (esNumero(inicio, n) && n >= 1 && n <= LXW_ROW_MAX) {
            fila = static_cast<lxw_row_t>(n) - 1;
        } else if (!referencia(inicio, fila, columna)) {
            fallar("fila o celda no valida: " + inicio, numero);
        }
        for (const Celda& c : partir(l.substr(dosPuntos + 1), numero)) {
            escribir(libro, hoja, negrita, fila, columna, c, numero);
            ++columna;
        }
    }
    if (!hoja)
        workbook_add_worksheet(libro, "Hoja1");
    const lxw_error e = workbook_close(libro);
    if (e != LXW_NO_ERROR)
        fallar(std::string("no se puede escribir el libro: ") + lxw_strerror(e));
    return 0;
}
