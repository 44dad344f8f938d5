// Images attached to a message: from the camera or the photo library, or pasted. Each is shrunk to
// at most 2048 pixels on its long side and to a byte budget (screenshots stay PNG unless that is
// large, photos become JPEG), so that a message with the most images stays well under the link's
// limit, and goes to Codex as an image input item beside the text.

import { el, button } from './dom.js';

export const longestSide = 2048;
export const maxImages = 4;
// Bytes one image may take, so that a message with the most images stays well under the link's
// 16 MB once written as text: 4 × 2 MB grows by a third to under 11 MB.
export const imageByteBudget = 2 * 1024 * 1024;
const jpegQuality = 0.85;

const held = new Map(); // thread id → { images: [{ id, url, width, height }], error }

const of = (threadID) => {
  if (!held.has(threadID)) held.set(threadID, { images: [], error: '' });
  return held.get(threadID);
};

// The size an image of width × height is sent at: its own, or shrunk to fit the longest side.
export function scaledSize(width, height, limit = longestSide) {
  const scale = Math.min(1, limit / Math.max(width, height, 1));
  return { width: Math.max(1, Math.round(width * scale)), height: Math.max(1, Math.round(height * scale)) };
}

export const attachedImages = (threadID) => held.get(threadID)?.images || [];

// The images as the engine takes them; they stay attached until the message is accepted.
export const imageInputs = (images) => images.map((image) => ({ type: 'image', url: image.url }));

// Once the message that carried them is accepted: those images leave; any added since stay.
export function dropImages(threadID, images) {
  const sent = new Set(images.map((image) => image.id));
  const attachments = held.get(threadID);
  if (!attachments) return;
  attachments.images = attachments.images.filter((image) => !sent.has(image.id));
  if (!attachments.images.length && !attachments.error) held.delete(threadID);
}

const blobOf = (canvas, type, quality = jpegQuality) => new Promise((resolve) => canvas.toBlob(resolve, type, quality));
const dataURLOf = (blob) => new Promise((resolve, reject) => {
  const reader = new FileReader();
  reader.onload = () => resolve(reader.result);
  reader.onerror = () => reject(reader.error);
  reader.readAsDataURL(blob);
});

function drawn(bitmap, size, background) {
  const canvas = el('canvas', { width: size.width, height: size.height });
  const pen = canvas.getContext('2d');
  if (background) {
    pen.fillStyle = background;
    pen.fillRect(0, 0, size.width, size.height);
  }
  pen.drawImage(bitmap, 0, 0, size.width, size.height);
  return canvas;
}

// Shrunk to the longest side, then to the byte budget: a PNG over it becomes JPEG, and a JPEG
// over it is drawn smaller until it fits.
async function shrink(file) {
  const bitmap = await createImageBitmap(file);
  let limit = longestSide;
  let size, blob;
  try {
    do {
      size = scaledSize(bitmap.width, bitmap.height, limit);
      blob = file.type === 'image/png' && limit === longestSide ? await blobOf(drawn(bitmap, size), 'image/png') : null;
      // JPEG has no transparency: what was transparent shows white.
      if (!blob || blob.size > imageByteBudget) blob = await blobOf(drawn(bitmap, size, 'white'), 'image/jpeg');
      if (!blob) throw new Error('The image could not be encoded.');
      limit = Math.floor(limit * 0.75);
    } while (blob.size > imageByteBudget && limit >= 64);
  } finally {
    bitmap.close();
  }
  if (blob.size > imageByteBudget) throw new Error('The image could not be made small enough.');
  return { id: crypto.randomUUID(), url: await dataURLOf(blob), ...size };
}

// Adds the image files among files to the thread's attachments, then calls changed.
export async function addImages(threadID, files, changed) {
  const attachments = of(threadID);
  attachments.error = '';
  for (const file of [...files].filter((f) => f.type.startsWith('image/'))) {
    if (attachments.images.length >= maxImages) {
      attachments.error = `A message takes at most ${maxImages} images.`;
      break;
    }
    try {
      attachments.images.push(await shrink(file));
    } catch {
      attachments.error = `${file.name || 'That image'} could not be read as an image.`;
    }
  }
  changed();
}

// The composer's attach button (with its hidden file picker) and the row of thumbnails.
export function attachControls(threadID, changed) {
  const picker = el('input', { type: 'file', id: 'attach-input', accept: 'image/*', multiple: true, hidden: true,
    onchange: (event) => addImages(threadID, event.target.files, changed) });
  const attach = button('Add image', () => picker.click(), 'plain', 'attach');
  const attachments = held.get(threadID);
  const strip = attachments && (attachments.images.length || attachments.error)
    ? el('div', { className: 'attachments', id: 'attachments' },
      attachments.images.map((image) => el('figure', { className: 'thumb', dataset: { image: image.id } },
        el('img', { src: image.url, alt: `Image ${image.width} × ${image.height}` }),
        button('×', () => {
          attachments.images = attachments.images.filter((other) => other.id !== image.id);
          changed();
        }, 'plain remove', undefined))),
      attachments.error ? el('p', { className: 'error' }, attachments.error) : null)
    : null;
  for (const remove of strip?.querySelectorAll('button.remove') || []) remove.setAttribute('aria-label', 'Remove image');
  return { attach: [attach, picker], strip };
}

// Pasted images (a screenshot, say) are attached; pasted text goes into the composer as usual.
export function pastedImages(threadID, event, changed) {
  const files = [...(event.clipboardData?.files || [])].filter((file) => file.type.startsWith('image/'));
  if (files.length) addImages(threadID, files, changed);
}

// Images of a user's message as the engine gives them back: only images carried in the message
// itself (data: addresses) are drawn; one elsewhere is named, never fetched.
export function messageImages(images) {
  if (!images?.length) return null;
  return el('div', { className: 'message-images' }, images.map((image) =>
    (typeof image.url === 'string' && /^data:image\/(png|jpeg|gif|webp);base64,/i.test(image.url)
      ? el('img', { src: image.url, alt: 'An image sent with this message', className: 'message-image' })
      : el('span', { className: 'muted' }, `[image: ${image.path || image.url || 'not shown'}]`))));
}
