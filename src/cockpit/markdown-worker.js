// Reads Markdown for the page, off its main thread: each message {id, text} is answered with
// {id, tokens}, marked's top-level tokens of the text. The page ends this worker when a reading
// runs over its time.

import { lex } from './markdown.js';

self.onmessage = (event) => {
  const { id, text } = event.data || {};
  if (typeof text !== 'string') return;
  self.postMessage({ id, tokens: lex(text) });
};
self.postMessage({ ready: true });
