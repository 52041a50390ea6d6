#pragma once
// The error a call raises, for tests that state its number and text.

#include "common/VbError.h"

#include <functional>

namespace presupuestos::prueba {

// The error the call raised; number 0 and no text when it raised none.
inline VbError errorDe(const std::function<void()>& f)
{
    try {
        f();
    } catch (const VbError& e) {
        return e;
    }
    return VbError(0, QString());
}

// Its number alone, 0 when it raised none.
inline int numeroError(const std::function<void()>& f) { return errorDe(f).number(); }

} // namespace presupuestos::prueba
