#!/usr/bin/env bash
# Regenerates presupuesto.xls from presupuesto_xls.txt: generar_libro writes
# the .xlsx and Gnumeric's ssconvert turns it into Excel 97-2003 (BIFF8).
# Needs a build (build/tools/generar_libro) and the gnumeric package; the
# tests only read the result, kept in the repository.
set -euo pipefail
cd "$(dirname "$0")"
GENERAR="${GENERAR_LIBRO:-../../build/tools/generar_libro}"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
"$GENERAR" "$tmp/presupuesto.xlsx" presupuesto_xls.txt
ssconvert --export-type=Gnumeric_Excel:excel_biff8 "$tmp/presupuesto.xlsx" presupuesto.xls
