#!/usr/bin/env bash
# Builds the fuzz target with clang, seeds it with workbooks written by
# generar_libro (from the normal build) plus bare-XML inputs, and runs it.
#   fuzz/ejecutar.sh [SEGUNDOS]      (default 300)
set -euo pipefail
cd "$(dirname "$0")/.."
SEGUNDOS="${1:-300}"
GENERAR="${GENERAR_LIBRO:-build/tools/generar_libro}"
[ -x "$GENERAR" ] || { echo "falta $GENERAR: compile antes el proyecto (scripts/build)" >&2; exit 1; }

if [ ! -f build-fuzz/build.ninja ]; then
  CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -G Ninja -DPRESUPUESTOS_FUZZ=ON \
    -DPRESUPUESTOS_TESTS=OFF -DPRESUPUESTOS_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
ninja -C build-fuzz fuzz_lector_xlsx

SEMILLAS=build-fuzz/semillas
CORPUS=build-fuzz/corpus
mkdir -p "$SEMILLAS" "$CORPUS"
printf '1: Cat;Nombre;Dpto;Cuenta;Ene;Feb\n2: a;b;1;70000001;10;20.5\n3: ;;;x;#b:1;#r:uno|dos\n' \
  | "$GENERAR" "$SEMILLAS/compartidos.xlsx"
printf '1: a;b;1;70000001;10\nAB12: "texto"\n' | "$GENERAR" --constante "$SEMILLAS/en_linea.xlsx"
printf 'hoja Uno\n1: x\nhoja Dos\nactiva\n1: 1;2;#fn:=A1+B1|3;#fs:=A1|x\n' | "$GENERAR" "$SEMILLAS/dos_hojas.xlsx"
S=$'\x1e'
printf '%s' '<worksheet xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><sheetData><row r="2"><c r="C2"><v>1</v></c><c r="D2" t="s"><v>0</v></c><c r="E2" t="inlineStr"><is><r><t>a</t></r></is></c><c t="b"><v>1</v></c><c t="e"><v>#N/A</v></c></row><row><c><v>2.5E+3</v></c></row></sheetData></worksheet>'"$S"'<sst xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><si><t xml:space="preserve">_x000D_a</t></si><si><r><t>b</t></r><rPh><t>c</t></rPh></si></sst>' > "$SEMILLAS/xml_partes.bin"
printf '%s' '<x:worksheet xmlns:x="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><x:sheetData><x:row r="1"><x:c r="A1"><x:v>1</x:v></x:c></x:row></x:sheetData></x:worksheet>' > "$SEMILLAS/xml_prefijo.bin"

build-fuzz/fuzz/fuzz_lector_xlsx -dict=fuzz/xlsx.dict -max_total_time="$SEGUNDOS" -rss_limit_mb=2048 \
  -timeout=10 -print_final_stats=1 "$CORPUS" "$SEMILLAS"
