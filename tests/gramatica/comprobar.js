#!/usr/bin/env node
// Parses with a T-SQL grammar every statement the system can send to SQL
// Server: the shapes the tests recorded at the connection (files of JSON
// lines in the folders given with --sentencias) and the statements of the
// SQL Server scripts (--guion, split at GO). Prints each statement that does
// not parse, with the grammar's complaint, and exits 1 if there is any.
'use strict';
const fs = require('fs');
const path = require('path');
let antlr;
try {
  antlr = require('antlr4ts-sql');
} catch (e) {
  console.log(`The T-SQL grammar is not installed in ${__dirname}: run scripts/install-deps.\n${e.message}`);
  process.exit(1);
}
const { antlr4tsSQL, SQLDialect, PredictionMode, BailErrorStrategy } = antlr;

const gramatica = new antlr4tsSQL(SQLDialect.TSQL);

// Positional markers are the driver's: SQL Server receives them as @P1, @P2...
// The grammar (antlr4ts-sql 1.1.0) predates sequences: NEXT VALUE FOR is
// read as the function call it behaves as, so the rest is still checked.
function comoServidor(sql) {
  let r = '';
  let n = 0;
  for (let i = 0; i < sql.length; ++i) {
    const c = sql[i];
    const cierre = c === "'" ? "'" : c === '"' ? '"' : c === '[' ? ']' : null;
    if (cierre) {
      const fin = sql.indexOf(cierre, i + 1);
      const hasta = fin < 0 ? sql.length : fin + 1;
      r += sql.slice(i, hasta);
      i = hasta - 1;
    } else if (c === '-' && sql[i + 1] === '-') {
      const fin = sql.indexOf('\n', i);
      const hasta = fin < 0 ? sql.length : fin;
      r += sql.slice(i, hasta);
      i = hasta - 1;
    } else if (c === '?') {
      r += '@P' + ++n;
    } else {
      r += c;
    }
  }
  return r.replace(/\bNEXT\s+VALUE\s+FOR\s+([\w.]+)/gi, 'NEXT_VALUE_FOR($1)');
}

// The grammar's complaints about a text; none when it parses. The fast
// prediction first, the full one only when it fails.
function quejas(sql) {
  const texto = comoServidor(sql);
  try {
    const parser = gramatica.getParser(gramatica.getTokens(texto, [{ syntaxError: () => { throw new Error(); } }]), []);
    parser.interpreter.setPredictionMode(PredictionMode.SLL);
    parser.errorHandler = new BailErrorStrategy();
    gramatica.getParseTree(parser);
    return [];
  } catch (e) {
    const q = [];
    const oyente = { syntaxError: (r, s, linea, col, msg) => q.push(`${linea}:${col} ${msg.length > 160 ? msg.slice(0, 160) + '...' : msg}`) };
    const parser = gramatica.getParser(gramatica.getTokens(texto, [oyente]), [oyente]);
    parser.interpreter.setPredictionMode(PredictionMode.LL);
    gramatica.getParseTree(parser);
    return q.length ? q : ['(the grammar rejects it without saying where)'];
  }
}

const carpetas = [];
const guiones = [];
for (let i = 2; i < process.argv.length; ++i) {
  const a = process.argv[i];
  if (a === '--sentencias') carpetas.push(process.argv[++i]);
  else if (a === '--guion') guiones.push(process.argv[++i]);
  else { console.error(`Unknown argument: ${a}`); process.exit(2); }
}

// shape -> { texto, origen }
const formas = new Map();
for (const carpeta of carpetas) {
  const ficheros = fs.existsSync(carpeta) ? fs.readdirSync(carpeta).filter((f) => f.endsWith('.jsonl')) : [];
  for (const f of ficheros) {
    for (const linea of fs.readFileSync(path.join(carpeta, f), 'utf8').split('\n')) {
      if (!linea.trim()) continue;
      let s;
      try { s = JSON.parse(linea); } catch { continue; } // a line cut short by a process that died
      if (!formas.has(s.forma)) formas.set(s.forma, { texto: s.texto, origen: s.prueba || f });
    }
  }
}
let deGuiones = 0;
for (const g of guiones) {
  const trozos = fs.readFileSync(g, 'utf8').split(/^\s*GO\s*$/im);
  trozos.forEach((t, i) => {
    if (!t.replace(/--.*$/gm, '').trim()) return;
    formas.set(`${g}#${i}`, { texto: t.trim(), origen: `${path.basename(g)}, batch ${i + 1}` });
    ++deGuiones;
  });
}

let fallos = 0;
for (const [, s] of formas) {
  const q = quejas(s.texto);
  if (!q.length) continue;
  ++fallos;
  console.log(`NOT VALID T-SQL (${s.origen}):\n  ${s.texto}\n  ${q.join('\n  ')}\n`);
}
// Nothing recorded means the recording is broken, not that all is well.
if (carpetas.length && formas.size === deGuiones) {
  ++fallos;
  console.log(`MISSING: no statement was recorded in ${carpetas.join(', ')}.`);
}
console.log(`${formas.size - deGuiones} recorded statement shapes and ${deGuiones} script batches; ${fallos} failures.`);
process.exit(fallos ? 1 : 0);
