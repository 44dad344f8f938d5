// Reads {"hellos": [...], "pairs": [[i, j], ...]} from the file named first and prints
// {"valid": [bool...], "codes": ["123456"...]}, all computed with Node's crypto.
import fs from 'node:fs';
import { verifyHello, pairingCode } from './common.mjs';

const input = JSON.parse(fs.readFileSync(process.argv[2], 'utf8'));
const valid = input.hellos.map(verifyHello);
const codes = (input.pairs ?? []).map(([a, b]) => pairingCode(input.hellos[a], input.hellos[b]));
process.stdout.write(JSON.stringify({ valid, codes }) + '\n');
