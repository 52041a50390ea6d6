#pragma once
// Errors as the worksheet reports them: a number and a description, as the
// original run time raised them. Every layer throws this type; the forms catch
// it in their handlers and show it (see ErrorReport.h).

#include <QString>
#include <stdexcept>

namespace presupuestos {

class VbError : public std::runtime_error {
public:
    // Run-time error numbers the system raises itself.
    static constexpr int Overflow = 6;
    static constexpr int SubscriptOutOfRange = 9;
    static constexpr int TypeMismatch = 13;
    static constexpr int InvalidProcedureCall = 5;
    // Errors reported by the database engine.
    static constexpr int DatabaseError = -2147217900; // 0x80040E14, as ADO reports a provider error
    static constexpr int ParameterTooLong = -2147217833; // 0x80040E57: data would be truncated

    // What a database error means for the user, where the engine says it.
    // Interbloqueo: the engine chose this transaction to break a cycle of
    // waits (or could not serialise it); run again whole, it may pass.
    // ConexionPerdida: the session with the server is gone, and with it the
    // transaction it had open.
    enum class Causa { Ninguna, SoloLectura, Bloqueada, ClaveDuplicada, Interbloqueo, ConexionPerdida };

    VbError(int number, const QString& description, int line = 0, Causa causa = Causa::Ninguna);

    int number() const noexcept { return number_; }
    const QString& description() const noexcept { return description_; }
    // Line of the failing statement; 0 when unknown.
    int line() const noexcept { return line_; }
    Causa causa() const noexcept { return causa_; }

    // The run time's own errors. "Overflow" keeps its original text; the
    // others read as a Spanish system writes them.
    static VbError overflow();
    static VbError subscriptOutOfRange();
    static VbError typeMismatch();
    static VbError invalidUseOfNull();
    static VbError invalidPropertyValue();
    static VbError invalidProcedureCall();
    static VbError internalError();
    static VbError outOfMemory();
    // The data layer's errors.
    static VbError noCurrentRecord();
    static VbError itemNotFound();
    static VbError connectionUnusable();

private:
    int number_;
    QString description_;
    int line_;
    Causa causa_;
};

} // namespace presupuestos
