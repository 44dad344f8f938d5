// Images attached to a message: from the camera or the photo library, or pasted. Each is shrunk to
// at most 2048 pixels on its long side (screenshots stay PNG unless that is large, photos become
// JPEG), so that a message with them stays well under the link's limit, and goes to Codex as an
// image input item beside the text.

import { el, button } from './dom.js';

export const longestSide = 2048;
export const maxImages = 4;
const pngBudget = 2 * 1024 * 1024;
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

// The images as the engine takes them, and the thread's attachments emptied; put them back with
// restoreImages where the message could not be sent.
export function takeImageInputs(threadID) {
  const images = attachedImages(threadID);
  held.delete(threadID);
  return { images, inputs: images.map((image) => ({ type: 'image', url: image.url })) };
}

export function restoreImages(threadID, images) {
  if (images.length) of(threadID).images = [...images, ...attachedImages(threadID)].slice(0, maxImages);
}

const blobOf = (canvas, type) => new Promise((resolve) => canvas.toBlob(resolve, type, jpegQuality));
const dataURLOf = (blob) => new Promise((resolve, reject) => {
  const reader = new FileReader();
  reader.onload = () => resolve(reader.result);
  reader.onerror = () => reject(reader.error);
  reader.readAsDataURL(blob);
});

async function shrink(file) {
  const bitmap = await createImageBitmap(file);
  const size = scaledSize(bitmap.width, bitmap.height);
  const canvas = el('canvas', { width: size.width, height: size.height });
  canvas.getContext('2d').drawImage(bitmap, 0, 0, size.width, size.height);
  bitmap.close();
  let blob = file.type === 'image/png' ? await blobOf(canvas, 'image/png') : null;
  if (!blob || blob.size > pngBudget) blob = await blobOf(canvas, 'image/jpeg');
  if (!blob) throw new Error('The image could not be encoded.');
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
