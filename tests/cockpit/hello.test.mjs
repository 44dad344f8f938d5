// The browser cockpit's hello against the vectors and Node's own crypto.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { test } from 'node:test';
import { webcrypto as crypto } from 'node:crypto';
import { fileURLToPath } from 'node:url';
import * as hello from '../../src/cockpit/hello.js';
import * as reference from '../../tools/hello-vectors/common.mjs';

const vectors = JSON.parse(fs.readFileSync(
  fileURLToPath(new URL('../data/hello-vectors.json', import.meta.url)), 'utf8'));

test('the vectors verify, and a change to any part of a hello does not', async () => {
  for (const h of vectors.hellos) assert.equal(await hello.verifyHello(crypto, h), true, h.displayName);
  const h = vectors.hellos[0];
  const signature = hello.fromBase64(h.signature);
  signature[signature.length - 1] ^= 1;
  for (const changed of [
    { ...h, displayName: h.displayName + ' ' },
    { ...h, nonce: vectors.hellos[1].nonce },
    { ...h, publicKey: vectors.hellos[1].publicKey },
    { ...h, publicKey: h.publicKey.slice(4) },
    { ...h, publicKey: 'A'.repeat(88) },
    { ...h, signature: hello.toBase64(signature) },
    { ...h, signature: 'not base64!' },
    { ...h, deviceID: 7 },
    null,
  ])
    assert.equal(await hello.verifyHello(crypto, changed), false);
});

test('pairing codes agree with the vectors, leading zeros kept', async () => {
  for (const { a, b, code } of vectors.pairs) {
    assert.equal(await hello.pairingCode(crypto, vectors.hellos[a], vectors.hellos[b]), code);
    assert.equal(await hello.pairingCode(crypto, vectors.hellos[b], vectors.hellos[a]), code);
  }
  assert.ok(vectors.pairs.some(({ code }) => code.startsWith('0')));
});

test('a hello made in the browser verifies with Node crypto', async () => {
  const keys = await crypto.subtle.generateKey({ name: 'ECDSA', namedCurve: 'P-256' }, false,
    ['sign', 'verify']);
  for (const name of ['Firefox on Android', 'Ann\'s | phone 📱', '']) {
    const made = await hello.makeHello(crypto, keys, crypto.randomUUID(), name);
    assert.equal(reference.verifyHello(made), true);
    assert.equal(await hello.verifyHello(crypto, made), true);
    assert.equal(hello.fromBase64(made.nonce).length, 24);
  }
});

test('signatures convert between the raw and DER forms', () => {
  const raw = new Uint8Array(64);
  raw[31] = 5; // r = 5: one byte
  raw.fill(0xff, 32); // s with its first bit set: a zero byte in front
  const der = hello.ecdsaRawToDer(raw);
  assert.deepEqual([...der.subarray(0, 6)], [0x30, 3 + 35, 0x02, 1, 5, 0x02]);
  assert.equal(der[6], 33);
  assert.deepEqual(hello.ecdsaDerToRaw(der), raw);
  for (let i = 0; i < 50; i++) {
    const random = crypto.getRandomValues(new Uint8Array(64));
    assert.deepEqual(hello.ecdsaDerToRaw(hello.ecdsaRawToDer(random)), random);
  }
  const malformed = [
    Uint8Array.of(0x30, 6, 0x02, 1, 0x80, 0x02, 1, 1), // negative r
    Uint8Array.of(0x30, 7, 0x02, 2, 0x00, 0x05, 0x02, 1, 1), // r not minimal
    Uint8Array.of(0x30, 7, 0x02, 1, 5, 0x02, 1, 1, 0), // a trailing byte
    Uint8Array.of(0x30, 6, 0x02, 9, 5, 0x02, 1, 1), // r longer than what follows
    Uint8Array.of(0x31, 6, 0x02, 1, 5, 0x02, 1, 1), // not a sequence
    Uint8Array.of(0x30, 39, 0x02, 34, 1, ...new Uint8Array(33), 0x02, 1, 1), // r over 32 bytes
  ];
  for (const der of malformed) assert.equal(hello.ecdsaDerToRaw(der), null);
});
