// A TCP relay on loopback between a browser and the bridge, which a test can sever as a phone's
// network would drop, and keep shut for a while. TLS passes through it untouched; the page's origin
// is the relay's address, which the browser also puts in the Host header, so the bridge sees a page
// of its own origin. It reaches the bridge from another loopback address (127.0.0.2 by default), so
// that the bridge counts what comes through it as another device's, as it would a second phone's.

import { connect, createServer } from 'node:net';

export class Relay {
  constructor(targetPort, fromAddress = '127.0.0.2') {
    Object.assign(this, { targetPort, fromAddress });
    this.open = true;
    this.pairs = new Set();
    this.server = createServer((incoming) => {
      if (!this.open) {
        incoming.destroy();
        return;
      }
      const outgoing = connect({ port: this.targetPort, host: '127.0.0.1', localAddress: this.fromAddress });
      const pair = [incoming, outgoing];
      this.pairs.add(pair);
      const end = () => {
        this.pairs.delete(pair);
        incoming.destroy();
        outgoing.destroy();
      };
      for (const socket of pair) {
        socket.on('error', end);
        socket.on('close', end);
      }
      // What the browser sends waits here while held, as on a network that stalls before it drops.
      incoming.on('data', (chunk) => { if (!this.holding) outgoing.write(chunk); });
      outgoing.pipe(incoming);
    });
  }

  async listen() {
    await new Promise((resolve) => this.server.listen(0, '127.0.0.1', resolve));
    this.port = this.server.address().port;
    return this;
  }

  // Nothing more from the browser reaches the bridge until sever(); the connections stay open.
  hold() {
    this.holding = true;
  }

  // Cuts every connection at once and refuses new ones until resume().
  sever() {
    this.open = false;
    this.holding = false;
    for (const [incoming, outgoing] of [...this.pairs]) {
      incoming.resetAndDestroy();
      outgoing.destroy();
    }
  }

  resume() {
    this.open = true;
  }

  close() {
    this.sever();
    return new Promise((resolve) => this.server.close(resolve));
  }
}
