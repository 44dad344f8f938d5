// The cockpit's service worker: keeps the page's own files, and nothing else, so that the page
// opens at once, and says it is reconnecting, while the computer is away. It never sees engine
// data: that travels on the WebSocket, which no service worker intercepts, and it answers nothing
// but the page's files. The bridge writes a digest of its files in place of @VERSION@, so a bridge
// with other files installs a new worker, which caches them whole before it takes over.

const version = '@VERSION@';
const cacheName = `nimbrel-cockpit-${version}`;
// The page's files, written in by the bridge in place of @FILES@, separated by spaces.
const files = ['./', ...'@FILES@'.split(' ').filter((file) => file && !file.startsWith('@'))];
const scope = new URL('./', self.location).href;
const kept = new Set(files.map((file) => new URL(file, scope).href));

self.addEventListener('install', (event) => {
  event.waitUntil(caches.open(cacheName).then((cache) => cache.addAll(files.map((file) => new Request(file, { cache: 'no-cache' }))))
    .then(() => self.skipWaiting()));
});

self.addEventListener('activate', (event) => {
  event.waitUntil(caches.keys()
    .then((names) => Promise.all(names.filter((name) => name !== cacheName).map((name) => caches.delete(name))))
    .then(() => self.clients.claim()));
});

// The page's files from the cache, at once; anything else, and a file not cached, from the network.
self.addEventListener('fetch', (event) => {
  const request = event.request;
  if (request.method !== 'GET') return;
  const url = new URL(request.url);
  url.search = '';
  url.hash = '';
  const key = request.mode === 'navigate' && url.href === new URL('index.html', scope).href ? scope : url.href;
  if (!kept.has(key)) return;
  event.respondWith(caches.open(cacheName).then((cache) => cache.match(key))
    .then((cached) => cached || fetch(request)));
});

// A notification chosen: the page comes forward, or opens.
self.addEventListener('notificationclick', (event) => {
  event.notification.close();
  event.waitUntil(self.clients.matchAll({ type: 'window', includeUncontrolled: true }).then((windows) => {
    const open = windows.find((client) => client.url.startsWith(scope));
    return open ? open.focus() : self.clients.openWindow(scope);
  }));
});
