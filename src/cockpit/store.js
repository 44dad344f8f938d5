// What the page keeps in this browser, in IndexedDB: its signing key (the private half cannot be
// exported), its device id, the name the user chose, and the computers it has paired with.

const databaseName = 'nimbrel-cockpit';
const storeName = 'state';

function open() {
  return new Promise((resolve, reject) => {
    const request = indexedDB.open(databaseName, 1);
    request.onupgradeneeded = () => request.result.createObjectStore(storeName);
    request.onsuccess = () => resolve(request.result);
    request.onerror = () => reject(request.error);
  });
}

async function run(mode, work) {
  const database = await open();
  try {
    return await new Promise((resolve, reject) => {
      const transaction = database.transaction(storeName, mode);
      const request = work(transaction.objectStore(storeName));
      transaction.oncomplete = () => resolve(request.result);
      transaction.onerror = () => reject(transaction.error);
      transaction.onabort = () => reject(transaction.error);
    });
  } finally {
    database.close();
  }
}

export const read = (key) => run('readonly', (store) => store.get(key));
export const write = (key, value) => run('readwrite', (store) => store.put(value, key));

// This browser's identity, made on first use: a P-256 key pair whose private key never leaves
// WebCrypto, and a device id.
export async function identity(crypto) {
  const kept = await read('identity');
  if (kept && kept.keyPair && kept.deviceID) return kept;
  const keyPair = await crypto.subtle.generateKey({ name: 'ECDSA', namedCurve: 'P-256' }, false,
    ['sign', 'verify']);
  const made = { keyPair, deviceID: crypto.randomUUID() };
  await write('identity', made);
  return made;
}

// The key a paired computer had, by its device id, or undefined for a computer not paired here.
export async function pairedKey(deviceID) {
  const computers = (await read('computers')) || {};
  return Object.prototype.hasOwnProperty.call(computers, deviceID) ? computers[deviceID] : undefined;
}

export async function rememberComputer(deviceID, publicKey) {
  const computers = (await read('computers')) || {};
  computers[deviceID] = publicKey;
  await write('computers', computers);
}
