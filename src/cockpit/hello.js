// The browser's side of the hello and the pairing code, over WebCrypto. A hello's body is
// {deviceID, displayName, publicKey, nonce, signature}: the key is the 64-byte raw P-256 point and
// the signature DER ECDSA/SHA-256 over "deviceID|displayName|publicKey|nonce", both standard
// Base64. WebCrypto signs and verifies in the raw r‖s form, so signatures are converted here.

const encoder = new TextEncoder();

export function toBase64(bytes) {
  let text = '';
  for (const byte of bytes) text += String.fromCharCode(byte);
  return btoa(text);
}

// The bytes of standard Base64 text, or null where it is not Base64.
export function fromBase64(text) {
  if (typeof text !== 'string' || !/^[A-Za-z0-9+/]*={0,2}$/.test(text) || text.length % 4 !== 0)
    return null;
  try {
    return Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
  } catch {
    return null;
  }
}

// One unsigned big-endian integer of 32 bytes as a DER INTEGER's content: no leading zero bytes,
// and one zero byte where the first bit would read as a sign.
function derInteger(value) {
  let start = 0;
  while (start < value.length - 1 && value[start] === 0) start++;
  const body = value.subarray(start);
  return body[0] & 0x80 ? Uint8Array.of(0, ...body) : body;
}

export function ecdsaRawToDer(raw) {
  if (raw.length !== 64) throw new Error('a raw P-256 signature has 64 bytes');
  const r = derInteger(raw.subarray(0, 32));
  const s = derInteger(raw.subarray(32));
  return Uint8Array.of(0x30, 4 + r.length + s.length, 0x02, r.length, ...r, 0x02, s.length, ...s);
}

// The raw r‖s form of a DER signature, or null where it is not one well-formed P-256 signature.
export function ecdsaDerToRaw(der) {
  if (der.length < 8 || der[0] !== 0x30 || der[1] !== der.length - 2) return null;
  const raw = new Uint8Array(64);
  let at = 2;
  for (const half of [0, 32]) {
    if (der[at] !== 0x02) return null;
    const length = der[at + 1];
    const value = der.subarray(at + 2, at + 2 + length);
    if (length === 0 || value.length !== length) return null;
    // Minimal and non-negative, as DER requires.
    if (value[0] & 0x80 || (length > 1 && value[0] === 0 && !(value[1] & 0x80))) return null;
    const digits = value[0] === 0 ? value.subarray(1) : value;
    if (digits.length > 32) return null;
    raw.set(digits, half + 32 - digits.length);
    at += 2 + length;
  }
  return at === der.length ? raw : null;
}

export function signingInput(hello) {
  return encoder.encode([hello.deviceID, hello.displayName, hello.publicKey, hello.nonce].join('|'));
}

const algorithm = { name: 'ECDSA', hash: 'SHA-256' };

// The raw 64-byte public key of a WebCrypto key pair (its uncompressed point without the 0x04).
export async function rawPublicKey(crypto, publicKey) {
  const point = new Uint8Array(await crypto.subtle.exportKey('raw', publicKey));
  return point.subarray(1);
}

// A signed hello from keyPair, with a fresh nonce.
export async function makeHello(crypto, keyPair, deviceID, displayName) {
  const hello = {
    deviceID,
    displayName,
    publicKey: toBase64(await rawPublicKey(crypto, keyPair.publicKey)),
    nonce: toBase64(crypto.getRandomValues(new Uint8Array(24))),
  };
  const raw = new Uint8Array(await crypto.subtle.sign(algorithm, keyPair.privateKey, signingInput(hello)));
  hello.signature = toBase64(ecdsaRawToDer(raw));
  return hello;
}

// Whether a hello's body is well-formed and its signature verifies under its own key.
export async function verifyHello(crypto, hello) {
  if (!hello || typeof hello !== 'object') return false;
  for (const key of ['deviceID', 'displayName', 'publicKey', 'nonce', 'signature'])
    if (typeof hello[key] !== 'string') return false;
  const key = fromBase64(hello.publicKey);
  const der = fromBase64(hello.signature);
  const raw = der && ecdsaDerToRaw(der);
  if (!key || key.length !== 64 || !raw) return false;
  try {
    const publicKey = await crypto.subtle.importKey('raw', Uint8Array.of(4, ...key),
      { name: 'ECDSA', namedCurve: 'P-256' }, false, ['verify']);
    return await crypto.subtle.verify(algorithm, publicKey, raw, signingInput(hello));
  } catch {
    return false; // not a point on the curve
  }
}

// The six digits both screens show for two hellos.
export async function pairingCode(crypto, a, b) {
  const texts = [`${a.publicKey}|${a.nonce}`, `${b.publicKey}|${b.nonce}`].sort();
  const digest = new DataView(await crypto.subtle.digest('SHA-256', encoder.encode(texts.join('|'))));
  return String(digest.getUint32(0) % 1000000).padStart(6, '0');
}
