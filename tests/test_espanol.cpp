// Spanish throughout: Qt's own dialogs and buttons, and the keypad's decimal
// key, which types the decimal comma.

#include "EventosPrueba.h"
#include "HojaPrueba.h"
#include "calculation/dialog/frmOperaciones.h"
#include "desktop/PlataformaQt.h"
#include "worksheet/core/Columnas.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QTimer>
#include <QTranslator>
#include <gtest/gtest.h>

using namespace presupuestos;
using namespace presupuestos::prueba;
using namespace presupuestos::hoja;

namespace {

// Installed for one case and taken away after it.
struct TraduccionesQt {
    QTranslator* traductor = instalarTraduccionesQt();
    ~TraduccionesQt()
    {
        if (traductor) {
            QCoreApplication::removeTranslator(traductor);
            delete traductor;
        }
    }
};

QStringList textosDeBotones(QWidget* w)
{
    QStringList textos;
    for (QAbstractButton* b : w->findChildren<QAbstractButton*>())
        if (!b->text().isEmpty())
            textos << b->text();
    return textos;
}

} // namespace

TEST(Espanol, FileDialogsAndStandardButtonsSpeakSpanish)
{
    TraduccionesQt t;
    ASSERT_NE(t.traductor, nullptr) << "sin qtbase_es.qm (qt6-translations-l10n)";
    EXPECT_EQ(QCoreApplication::translate("QPlatformTheme", "&Yes"), QStringLiteral("&Sí"));

    QFileDialog dialogo(nullptr, QString(), QString(), QStringLiteral("Libros de Excel (*.xlsx *.xls)"));
    dialogo.setOption(QFileDialog::DontUseNativeDialog);
    dialogo.setFileMode(QFileDialog::ExistingFile);
    dialogo.setAcceptMode(QFileDialog::AcceptOpen);
    const QStringList botones = textosDeBotones(dialogo.findChild<QDialogButtonBox*>());
    EXPECT_TRUE(botones.contains(QStringLiteral("&Abrir"))) << botones.join(QLatin1Char('|')).toStdString();
    EXPECT_TRUE(botones.contains(QStringLiteral("Cancelar"))) << botones.join(QLatin1Char('|')).toStdString();
    auto* buscarEn = dialogo.findChild<QLabel*>(QStringLiteral("lookInLabel"));
    ASSERT_NE(buscarEn, nullptr);
    EXPECT_NE(buscarEn->text(), QStringLiteral("Look in:"));

    QMessageBox pregunta(QMessageBox::Question, QStringLiteral("Importar"), QStringLiteral("¿Continuar?"),
                         QMessageBox::Yes | QMessageBox::No);
    EXPECT_EQ(pregunta.button(QMessageBox::Yes)->text(), QStringLiteral("&Sí"));
    EXPECT_EQ(pregunta.button(QMessageBox::No)->text(), QStringLiteral("&No"));
}

TEST(Espanol, TheWorksheetsYesNoBoxAsksInSpanish)
{
    TraduccionesQt t;
    QStringList botones;
    QTimer::singleShot(0, [&] {
        auto* caja = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(caja, nullptr);
        botones = textosDeBotones(caja);
        for (QAbstractButton* b : caja->buttons())
            if (caja->buttonRole(b) == QMessageBox::NoRole)
                b->click();
    });
    EXPECT_EQ(CuadroMensajeQt().MsgBox(QStringLiteral("¿Borrar?"), vb::YesNo | vb::Question, QStringLiteral("Borrar")),
              vb::RespuestaNo);
    botones.sort();
    EXPECT_EQ(botones, (QStringList{QStringLiteral("&No"), QStringLiteral("&Sí")}));
}

TEST(Espanol, TheKeypadDecimalKeyTypesTheDecimalComma)
{
    HojaAbierta h;
    frmActPresupusto* f = h.hoja;
    const int fila = 4;   // 70000001, Norte
    f->vsPresupuesto->modelo().Select(fila, colMes(5));
    f->vsPresupuesto->setFocus();
    tecla(f->vsPresupuesto, Qt::Key_1, Qt::NoModifier, QStringLiteral("1"));
    QLineEdit* editor = editorAbierto(*f->vsPresupuesto);
    ASSERT_NE(editor, nullptr);
    tecla(editor, Qt::Key_Period, Qt::KeypadModifier, QStringLiteral("."));
    tecla(editor, Qt::Key_5, Qt::KeypadModifier, QStringLiteral("5"));
    EXPECT_EQ(editor->text(), QStringLiteral("1,5"));
    tecla(editor, Qt::Key_Return);
    QApplication::processEvents();
    EXPECT_DOUBLE_EQ(h.bd.valor(QStringLiteral("SELECT M5 FROM Presupuestos WHERE Cod_Ejercicio = 2027 "
                                               "AND Cuenta = '70000001' AND Dpto = 1")).toDouble(), 1.5);

    // The main keyboard's full stop stays what it is, a thousands separator.
    f->vsPresupuesto->modelo().Select(fila, colMes(6));
    tecla(f->vsPresupuesto, Qt::Key_1, Qt::NoModifier, QStringLiteral("1"));
    editor = editorAbierto(*f->vsPresupuesto);
    ASSERT_NE(editor, nullptr);
    tecla(editor, Qt::Key_Period, Qt::NoModifier, QStringLiteral("."));
    EXPECT_EQ(editor->text(), QStringLiteral("1."));
    tecla(editor, Qt::Key_Escape);

    frmOperaciones* d = f->operaciones();
    f->MostrarOperaciones();
    d->txtValor->setText(QStringLiteral("12"));
    d->txtValor->setCursorPosition(2);
    tecla(d->txtValor, Qt::Key_Period, Qt::KeypadModifier, QStringLiteral("."));
    tecla(d->txtValor, Qt::Key_2, Qt::KeypadModifier, QStringLiteral("2"));
    EXPECT_EQ(d->txtValor->text(), QStringLiteral("12,2"));
}
