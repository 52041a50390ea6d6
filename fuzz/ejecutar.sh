#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs one of them, or each in turn,
# for the given seconds, on its corpus in build-fuzz/corpus/OBJETIVO plus
# seeds written here.
#   fuzz/ejecutar.sh [OBJETIVO] [SEGUNDOS]
#     OBJETIVO: lector_xlsx (default), numeros, dialecto, portapapeles, or todos (each for SEGUNDOS)
#     SEGUNDOS: 300 by default; a lone number is taken as SEGUNDOS for lector_xlsx
# lector_xlsx seeds with workbooks written by generar_libro, from the normal
# build (scripts/build), plus bare-XML inputs.
set -euo pipefail
cd "$(dirname "$0")/.."
OBJETIVOS=(lector_xlsx numeros dialecto portapapeles)
OBJETIVO=lector_xlsx
if [[ $# -gt 0 && ! "$1" =~ ^[0-9]+$ ]]; then
  OBJETIVO="$1"
  shift
fi
SEGUNDOS="${1:-300}"
case "$OBJETIVO" in
  todos) ;;
  lector_xlsx|numeros|dialecto|portapapeles) OBJETIVOS=("$OBJETIVO") ;;
  *) echo "objetivo desconocido: $OBJETIVO (lector_xlsx, numeros, dialecto, portapapeles o todos)" >&2; exit 2 ;;
esac

if [ ! -f build-fuzz/build.ninja ]; then
  CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -G Ninja -DPRESUPUESTOS_FUZZ=ON \
    -DPRESUPUESTOS_TESTS=OFF -DPRESUPUESTOS_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
ninja -C build-fuzz "${OBJETIVOS[@]/#/fuzz_}"

semillas_lector_xlsx() {
  local SEMILLAS="$1"
  local GENERAR="${GENERAR_LIBRO:-build/tools/generar_libro}"
  [ -x "$GENERAR" ] || { echo "falta $GENERAR: compile antes el proyecto (scripts/build)" >&2; exit 1; }
  printf '1: Cat;Nombre;Dpto;Cuenta;Ene;Feb\n2: a;b;1;70000001;10;20.5\n3: ;;;x;#b:1;#r:uno|dos\n' \
    | "$GENERAR" "$SEMILLAS/compartidos.xlsx"
  printf '1: a;b;1;70000001;10\nAB12: "texto"\n' | "$GENERAR" --constante "$SEMILLAS/en_linea.xlsx"
  printf 'hoja Uno\n1: x\nhoja Dos\nactiva\n1: 1;2;#fn:=A1+B1|3;#fs:=A1|x\n' | "$GENERAR" "$SEMILLAS/dos_hojas.xlsx"
  local S=$'\x1e'
  printf '%s' '<worksheet xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><sheetData><row r="2"><c r="C2"><v>1</v></c><c r="D2" t="s"><v>0</v></c><c r="E2" t="inlineStr"><is><r><t>a</t></r></is></c><c t="b"><v>1</v></c><c t="e"><v>#N/A</v></c></row><row><c><v>2.5E+3</v></c></row></sheetData></worksheet>'"$S"'<sst xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><si><t xml:space="preserve">_x000D_a</t></si><si><r><t>b</t></r><rPh><t>c</t></rPh></si></sst>' > "$SEMILLAS/xml_partes.bin"
  printf '%s' '<x:worksheet xmlns:x="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><x:sheetData><x:row r="1"><x:c r="A1"><x:v>1</x:v></x:c></x:row></x:sheetData></x:worksheet>' > "$SEMILLAS/xml_prefijo.bin"
}

semillas_numeros() {
  local SEMILLAS="$1" i=0 t
  for t in '1.234,50' '  -12,5  ' '7-' ',5' '2,5e-1' $'12 \xe2\x82\xac' '922.337.203.685.477,5807' \
           '-922.337.203.685.477,5808' '9,223372036854775807E14' '0,33333333333333333333333333333333333333333' \
           '59999.41234567890123456789012345678901234567890' '0,000050000000000000000000000000000000000001' \
           '0000000000000000000000000000000000001234' '1E-400' 'abc' '1,2,3'; do
    printf '%s' "$t" > "$SEMILLAS/semilla_$((i++))"
  done
}

semillas_dialecto() {
  local SEMILLAS="$1" i=0 t
  for t in "INSERT INTO ##PresupFiltroCuentas_4523_5 SELECT 24, '90000001','Ventas TOP 2 tiendas', Codigo, Nombre FROM Departamentos WHERE Cod_Empresa = 1" \
           "SELECT Top 1 Cod_Ejercicio FROM ##Drumav_Estadisticas_512_5 WHERE Cod_Ejercicio = 2026" \
           "CREATE TABLE ##PresupFiltroCuentas_1 ([Codigo] INT, Cuenta [VARCHAR](12), Nombre VARCHAR(200))" \
           "TRUNCATE TABLE ##PresupFiltroCuentas_1" \
           "UPDATE Presupuestos  SET M5 = 12.5, Modificacion_Manual |= 16 WHERE Cuenta = 'Bar D''Angelo'" \
           "SELECT Cod_Empresa FROM [Pelvor].dbo.Empresas_Contabilidad  WHERE Cod_EmpresaC = 1 AND n = 'Caja.dbo.Central'" \
           "SELECT 'CTO002' AS Cpto,2026 AS Cod_Ejercicio,  Cod_Almacen, ISNULL([1], 0) AS [1] FROM (SELECT Cod_Almacen, MONTH(fecha) as Mes, ISNULL(Count(DISTINCT Fecha),0) AS Dias FROM Pelvor.dbo.Almacen_Acumulados_2 GROUP BY Cod_Almacen, MONTH(fecha)) AS SourceTable PIVOT (SUM(Dias) FOR Mes IN ([1],[2])) AS PivotTable" \
           "SELECT \"x ISNULL( y\", [a]]b |= c] -- TOP 2 x" ; do
    printf '%s' "$t" > "$SEMILLAS/semilla_$((i++))"
  done
}

# Three bytes of limits (decimals, lines, fields) and then the text.
semillas_portapapeles() {
  local SEMILLAS="$1" i=0 t
  for t in $'\x02\x0a\x0c1.500\t1,25\t  -3 \r\n\t1.234,56\t\r\n' $'\x00\x03\x02\t\t\t\n\n\n' $'\x04\x01\x01 ' \
           $'\x01\xff\x0c1\t2\n3\t4\n' $'\x00\x02\x02x\t1' $'\x03\x05\x0c922.337.203.685.477,5807\t-1'; do
    printf '%s' "$t" > "$SEMILLAS/semilla_$((i++))"
  done
}

for objetivo in "${OBJETIVOS[@]}"; do
  SEMILLAS="build-fuzz/semillas/$objetivo"
  CORPUS="build-fuzz/corpus/$objetivo"
  mkdir -p "$SEMILLAS" "$CORPUS"
  "semillas_$objetivo" "$SEMILLAS"
  DICCIONARIO="fuzz/$objetivo.dict"
  [ "$objetivo" = lector_xlsx ] && DICCIONARIO=fuzz/xlsx.dict
  echo "== fuzz_$objetivo, $SEGUNDOS s" >&2
  "build-fuzz/fuzz/fuzz_$objetivo" -dict="$DICCIONARIO" -max_total_time="$SEGUNDOS" -rss_limit_mb=2048 \
    -timeout=10 -print_final_stats=1 "$CORPUS" "$SEMILLAS"
done
