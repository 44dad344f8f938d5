// Writes test vectors: node tools/hello-vectors/generate.mjs > tests/data/hello-vectors.json
import crypto from 'node:crypto';
import { makeHello, pairingCode, b64urlToB64 } from './common.mjs';

const names = ['Phone', "Ann's | iPhone", '📱 Tablet 🇳🇴', 'Cafe\u0301 ||', ''];
const keys = names.map(() => crypto.generateKeyPairSync('ec', { namedCurve: 'prime256v1' }).privateKey);
const hellos = names.map((name, i) => makeHello(keys[i], crypto.randomUUID(), name));
const pairs = [[0, 1], [2, 3], [3, 4]].map(([a, b]) => ({ a, b, code: pairingCode(hellos[a], hellos[b]) }));

// One more pair whose code has leading zeros: draw nonces until the remainder is below 100000.
let low;
do {
  low = [makeHello(keys[0], hellos[0].deviceID, 'Low A'), makeHello(keys[1], hellos[1].deviceID, 'Low B')];
} while (Number(pairingCode(low[0], low[1])) >= 100000);
hellos.push(...low);
pairs.push({ a: hellos.length - 2, b: hellos.length - 1, code: pairingCode(low[0], low[1]) });

const privateKeys = keys.map((key) => ({
  raw: b64urlToB64(key.export({ format: 'jwk' }).d),
  publicKey: makeHello(key, 'x', 'x').publicKey,
}));
process.stdout.write(JSON.stringify({ hellos, pairs, privateKeys }, null, 1) + '\n');
