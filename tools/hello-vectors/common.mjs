// Hellos and pairing codes computed with Node's own crypto, independent of the C++ code.
import crypto from 'node:crypto';

export const b64urlToB64 = (text) => Buffer.from(text, 'base64url').toString('base64');

export function rawPublicKey(publicKey) {
  const jwk = publicKey.export({ format: 'jwk' });
  return Buffer.concat([Buffer.from(jwk.x, 'base64url'), Buffer.from(jwk.y, 'base64url')]);
}

export function publicKeyFromRaw(base64) {
  const raw = Buffer.from(base64, 'base64');
  if (raw.length !== 64) throw new Error('public key must be 64 bytes');
  return crypto.createPublicKey({
    key: { kty: 'EC', crv: 'P-256', x: raw.subarray(0, 32).toString('base64url'), y: raw.subarray(32).toString('base64url') },
    format: 'jwk',
  });
}

export const signingInput = (h) => Buffer.from([h.deviceID, h.displayName, h.publicKey, h.nonce].join('|'), 'utf8');

export function makeHello(privateKey, deviceID, displayName, nonce = crypto.randomBytes(24)) {
  const hello = { deviceID, displayName, publicKey: rawPublicKey(crypto.createPublicKey(privateKey)).toString('base64'), nonce: nonce.toString('base64') };
  hello.signature = crypto.sign('sha256', signingInput(hello), { key: privateKey, dsaEncoding: 'der' }).toString('base64');
  return hello;
}

export function verifyHello(hello) {
  try {
    return crypto.verify('sha256', signingInput(hello), { key: publicKeyFromRaw(hello.publicKey), dsaEncoding: 'der' },
      Buffer.from(hello.signature, 'base64'));
  } catch {
    return false;
  }
}

export function pairingCode(a, b) {
  const texts = [`${a.publicKey}|${a.nonce}`, `${b.publicKey}|${b.nonce}`].sort();
  const digest = crypto.createHash('sha256').update(texts.join('|'), 'utf8').digest();
  return String(digest.readUInt32BE(0) % 1000000).padStart(6, '0');
}
