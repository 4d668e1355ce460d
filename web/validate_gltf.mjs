#!/usr/bin/env node
// Validates binary or text glTF files with the Khronos glTF validator.
// Usage: node validate_gltf.mjs FILE...
// Prints one line per file ("<file>: N errors, N warnings, N infos, N hints"), then every issue
// of the file on its own indented line. Exits 1 when any file has an error or a warning or cannot
// be read, 2 when no file is named, 0 otherwise.
import { readFile } from 'node:fs/promises';
import { createRequire } from 'node:module';

const require = createRequire(import.meta.url);
const validator = require('gltf-validator');

const kSeverity = ['error', 'warning', 'info', 'hint'];

async function validate(file) {
  let bytes;
  try {
    bytes = new Uint8Array(await readFile(file));
  } catch (e) {
    console.log(`${file}: cannot be read: ${e.message}`);
    return false;
  }
  let report;
  try {
    // Geometry files are self-contained: nothing outside the file is ever loaded.
    report = await validator.validateBytes(bytes, { uri: file, maxIssues: 0 });
  } catch (e) {
    console.log(`${file}: the validator failed: ${e && e.message ? e.message : e}`);
    return false;
  }
  const issues = report.issues;
  console.log(
    `${file}: ${issues.numErrors} errors, ${issues.numWarnings} warnings, ` +
      `${issues.numInfos} infos, ${issues.numHints} hints`,
  );
  for (const m of issues.messages) {
    console.log(`  ${kSeverity[m.severity] ?? m.severity} ${m.code} ${m.pointer ?? ''}: ${m.message}`);
  }
  return issues.numErrors === 0 && issues.numWarnings === 0;
}

const files = process.argv.slice(2);
if (files.length === 0) {
  console.error('usage: node validate_gltf.mjs FILE...');
  process.exit(2);
}
let ok = true;
for (const file of files) {
  if (!(await validate(file))) ok = false;
}
process.exit(ok ? 0 : 1);
