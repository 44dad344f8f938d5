// Telling the user that Codex needs them while the page is in the background: the count of
// waiting approvals and questions in the page's title and the app's badge, always; and, only once
// the user has switched it on (the browser asks for permission then, never before), a system
// notification with a short vibration when Codex asks or finishes a turn while the page is hidden.

import { read, write } from './store.js';

const pageTitle = 'Nimbrel Bridge';
const bodyLimit = 120;

const supported = () => typeof Notification === 'function';
const permitted = () => supported() && Notification.permission === 'granted';

// Text for a notification's body: one line, cut to a length a lock screen shows.
export function notificationText(value) {
  const oneLine = value.replace(/\s+/g, ' ').trim();
  const characters = Array.from(oneLine);
  return characters.length > bodyLimit ? `${characters.slice(0, bodyLimit - 1).join('')}…` : oneLine;
}

export const titleFor = (count) => (count > 0 ? `(${count}) ${pageTitle}` : pageTitle);

export class Attention {
  constructor() {
    this.wanted = false;
    this.problem = '';
    this.shown = new Map(); // tag → Notification, where the page made it itself
    this.told = new Set(); // tags already told, so that a request offered again after a reconnect is not told twice
    this.count = -1;
  }

  get supported() { return supported(); }
  get enabled() { return this.wanted && permitted(); }

  async load() {
    this.wanted = (await read('notify')) === true;
    // Once the user looks again, a finished turn's notification has said what it had to.
    document.addEventListener('visibilitychange', () => {
      if (document.visibilityState !== 'visible') return;
      for (const tag of [...this.told]) if (tag.startsWith('turn:')) this.settle(tag);
    });
  }

  // From the switch on the page: the only place that asks the browser for permission.
  async setWanted(wanted) {
    this.problem = '';
    if (wanted && supported() && Notification.permission !== 'granted') {
      const answer = await Notification.requestPermission();
      if (answer !== 'granted') {
        wanted = false;
        this.problem = answer === 'denied'
          ? 'The browser blocks notifications for this page; allow them in its site settings, then switch this on again.'
          : 'Notifications were not allowed.';
      }
    }
    this.wanted = wanted && supported();
    await write('notify', this.wanted);
  }

  // The number of requests waiting, in the title and on the app's badge where the browser has one.
  showCount(count) {
    if (count === this.count) return;
    this.count = count;
    document.title = titleFor(count);
    const badge = count > 0 ? navigator.setAppBadge?.(count) : navigator.clearAppBadge?.();
    badge?.catch?.(() => {});
  }

  // A notification while the page is hidden, once per tag.
  async tell(tag, title, body) {
    if (!this.enabled || document.visibilityState !== 'hidden' || this.told.has(tag)) return;
    this.told.add(tag);
    navigator.vibrate?.(200);
    const options = { body: notificationText(body), tag, icon: 'icon-192.png', badge: 'icon-192.png' };
    try {
      const notification = new Notification(title, options);
      notification.onclick = () => {
        window.focus();
        notification.close();
      };
      this.shown.set(tag, notification);
    } catch {
      // Where pages may not make notifications themselves, the service worker shows them.
      const registration = await navigator.serviceWorker?.getRegistration();
      await registration?.showNotification(title, options).catch(() => {});
    }
  }

  // A request that no longer waits: its notification goes.
  async settle(tag) {
    this.told.delete(tag);
    const own = this.shown.get(tag);
    this.shown.delete(tag);
    own?.close();
    const registration = await navigator.serviceWorker?.getRegistration().catch(() => undefined);
    for (const notification of (await registration?.getNotifications({ tag }).catch(() => [])) || [])
      notification.close();
  }

  // Settles every told request not among those still waiting.
  settleAllBut(waiting) {
    for (const tag of [...this.told]) if (tag.startsWith('request:') && !waiting.has(tag)) this.settle(tag);
  }
}
