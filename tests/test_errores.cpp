#include "PlataformaDePrueba.h"
#include "common/ErrorReport.h"
#include "common/Plataforma.h"
#include "desktop/PlataformaQt.h"

#include <gtest/gtest.h>

using namespace presupuestos;

TEST(ErrorReport, ShowsDescriptionCriticalAndQualifiedTitle)
{
    PlataformaDePrueba p;
    p.puntero->establecer(Puntero::RelojArena);
    const bool ok = conManejador(QStringLiteral("frmActPresupusto:CargarPresupuesto"),
                                 [] { throw VbError(3021, QStringLiteral("Sin registros")); }, true);
    EXPECT_FALSE(ok);
    EXPECT_EQ(p.mensajes->mostrados,
              (std::vector<MensajeMostrado>{{QStringLiteral("Sin registros"), 16, QStringLiteral("frmActPresupusto:CargarPresupuesto")}}));
    EXPECT_EQ(p.puntero->actual(), Puntero::Defecto);
}

TEST(ErrorReport, LineNumberPrefixAndPointerLeftAloneWhenNotAsked)
{
    PlataformaDePrueba p;
    p.puntero->establecer(Puntero::RelojArena);
    mostrarError(VbError(5, QStringLiteral("x"), 12), QStringLiteral("frmActPresupusto:cmdVer_Click"));
    EXPECT_EQ(p.mensajes->mostrados.back().titulo, QStringLiteral("[12] frmActPresupusto:cmdVer_Click"));
    EXPECT_EQ(p.puntero->actual(), Puntero::RelojArena);
    EXPECT_TRUE(conManejador(QStringLiteral("a:b"), [] {}));
    EXPECT_EQ(p.mensajes->mostrados.size(), 1u);
    // Anything thrown, not only the system's own errors, ends in the box.
    conManejador(QStringLiteral("a:b"), [] { throw std::runtime_error("boom"); });
    EXPECT_EQ(p.mensajes->mostrados.back().prompt, QStringLiteral("boom"));
}

TEST(DialogoArchivo, TheFilterIsInQtForm)
{
    // A description without a pattern of its own is kept as it is.
    EXPECT_EQ(DialogoArchivoQt::filtroQt(QStringLiteral("Archivos de Excel(*.xlsx)|*.xlsx|Libro de Excel 97-2003(*.xls)")),
              QStringLiteral("Archivos de Excel(*.xlsx) (*.xlsx);;Libro de Excel 97-2003(*.xls)"));
    EXPECT_EQ(DialogoArchivoQt::filtroQt(QStringLiteral("Libros|*.xlsx;*.xls|Todos|*.*")),
              QStringLiteral("Libros (*.xlsx *.xls);;Todos (*.*)"));
}
