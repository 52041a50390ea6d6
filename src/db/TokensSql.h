#pragma once
// The Transact-SQL texts the system composes, cut into tokens, and the
// rewrites every dialect makes of them. Each dialect (SQLite, PostgreSQL)
// runs the steps it needs in its own order; only sequences of tokens are
// rewritten, so whatever sits inside a quoted literal, a bracketed or quoted
// name or a comment reaches the engine as composed.

#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

namespace presupuestos {

struct TokenSql {
    enum class Tipo {
        Palabra,      // keyword or plain name, ##temporary names included
        Literal,      // '...' with '' inside
        Corchetes,    // [...] with ]] inside
        Comillas,     // "..." with "" inside
        Numero,
        Espacio,      // blanks and comments: never rewritten, never significant
        Signo,        // one punctuation character, or the two of |=
        Crudo,        // text already written for the engine by an earlier step
    };
    Tipo tipo;
    QString texto;
};

namespace tokens {

using Tokens = std::vector<TokenSql>;

// The tokens of a text; joined back they give the text unchanged.
Tokens tokenizar(const QString& sql);
QString unir(const Tokens& t);
QString unir(const Tokens& t, int desde, int hasta);

bool esPalabra(const TokenSql& t, const char* palabra);
bool esSigno(const TokenSql& t, const char* signo);
bool esTemporal(const TokenSql& t);
// A bracketed, double-quoted or plain name.
bool esNombre(const TokenSql& t);
// The name a bracketed, double-quoted or plain name token stands for.
QString nombre(const TokenSql& t);
// Index of the next (previous) token that is not blank, or -1.
int siguiente(const Tokens& t, int i);
int anterior(const Tokens& t, int i);
bool en(const Tokens& t, int i);
// Index of the parenthesis that closes the one at i, or -1.
int cierreDe(const Tokens& t, int i);
// Replaces tokens [desde, hasta] by one token already in the engine's terms.
void sustituir(Tokens& t, int desde, int hasta, const QString& texto);
// Puts token i's replacement in place; a blank keeps it apart from a
// neighbour it would otherwise fuse with into one name or number.
void poner(Tokens& t, int i, const TokenSql& nuevo);

// Double quotes around a name, doubling those inside it.
QString entreComillas(QString nombre);

// How a step writes a name it makes up (a pivot's columns).
using Citar = std::function<QString(const QString&)>;

// The rewrites both dialects share.
void temporales(Tokens& t);
// [Base].dbo.Tabla: the token base gives for the database, then the table.
void tresPartes(Tokens& t, QStringList* basesDatos, const std::function<TokenSql(const QString&)>& base);
void isNull(Tokens& t, const QString& funcion);
void asignacionOr(Tokens& t);
void pivot(Tokens& t, const Citar& citar);
void top(Tokens& t);
// The markers ("?") outside quotes, names and comments numbered as
// PostgreSQL numbers its parameters ($1, $2...).
QString numerarMarcas(const QString& texto);
// A table hint that locks what a read finds until the transaction ends
// ("WITH (UPDLOCK, HOLDLOCK)" after the table's name) is taken out; with
// paraActualizar the statement then ends in FOR UPDATE instead.
void bloqueo(Tokens& t, bool paraActualizar);

} // namespace tokens
} // namespace presupuestos
