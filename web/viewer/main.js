// The viewer of preview.html: reads the scene the page carries (base64 GLB) and the package's
// facts (JSON), shows the scene with orbit controls and the product tree beside it. A click on a
// tree entry highlights that instance. Nothing is fetched: the page works from file://.
// window.nomPreview tells a test what the page shows.
import * as THREE from 'three';
import { OrbitControls } from 'three/examples/jsm/controls/OrbitControls.js';
import { GLTFLoader } from 'three/examples/jsm/loaders/GLTFLoader.js';

const HIGHLIGHT = new THREE.Color(0xffa000);

const state = {
  ready: false,
  error: null,
  package: '',
  instances: 0,
  products: 0,
  missing: 0, // products shown as placeholders
  placeholders: 0, // placeholder boxes, one per instance of such a product
  expected: null,
  highlighted: null,
  select: (path) => select(path),
};
window.nomPreview = state;

const facts = JSON.parse(document.getElementById('nom-package').textContent);
state.package = facts.package;
state.expected = {
  instances: facts.instances,
  products: facts.products,
  missing: facts.missing.length,
};

function showFacts() {
  document.getElementById('title').textContent = facts.package || 'package';
  document.title = (facts.package || 'package') + ' - preview';
  const plural = (n, word) => n + ' ' + word + (n === 1 ? '' : 's');
  document.getElementById('counts').textContent =
    plural(facts.instances, 'instance') + ', ' + plural(facts.products, 'product') + ', ' +
    facts.missing.length + ' missing geometry';
  const list = document.getElementById('missing');
  for (const issue of facts.missing) {
    const item = document.createElement('li');
    item.textContent = issue.geometry + ' (' + issue.product + '): ' + issue.problem;
    list.appendChild(item);
  }
}

function decode(base64) {
  const text = atob(base64);
  const bytes = new Uint8Array(text.length);
  for (let i = 0; i < text.length; ++i) bytes[i] = text.charCodeAt(i);
  return bytes.buffer;
}

const view = document.getElementById('view');
const renderer = new THREE.WebGLRenderer({ antialias: true, preserveDrawingBuffer: true });
renderer.setPixelRatio(window.devicePixelRatio || 1);
view.appendChild(renderer.domElement);
const scene = new THREE.Scene();
scene.background = new THREE.Color(0xe8edf2);
scene.add(new THREE.HemisphereLight(0xffffff, 0x8090a0, 1.6));
const sun = new THREE.DirectionalLight(0xffffff, 1.8);
sun.position.set(5, 10, 7);
scene.add(sun);
const camera = new THREE.PerspectiveCamera(45, 1, 0.01, 10000);
const controls = new OrbitControls(camera, renderer.domElement);
controls.enableDamping = false;

const instances = new Map(); // ident path -> Object3D
const buttons = new Map(); // ident path -> tree button
let outline = null;
let restore = []; // [mesh, material] to put back when the highlight moves

function resize() {
  const width = Math.max(1, view.clientWidth);
  const height = Math.max(1, view.clientHeight);
  renderer.setSize(width, height);
  camera.aspect = width / height;
  camera.updateProjectionMatrix();
}

function render() {
  renderer.render(scene, camera);
}

function frame(root) {
  const box = new THREE.Box3().setFromObject(root);
  if (box.isEmpty()) box.set(new THREE.Vector3(-1, -1, -1), new THREE.Vector3(1, 1, 1));
  const centre = box.getCenter(new THREE.Vector3());
  const size = box.getSize(new THREE.Vector3()).length() || 1;
  camera.near = size / 1000;
  camera.far = size * 100;
  camera.position.copy(centre).add(new THREE.Vector3(0.45, 0.55, 0.7).multiplyScalar(size * 0.55));
  camera.updateProjectionMatrix();
  controls.target.copy(centre);
  controls.update();
}

function select(path) {
  const object = instances.get(path);
  if (!object) return false;
  for (const [mesh, material] of restore) mesh.material = material;
  restore = [];
  if (outline) {
    scene.remove(outline);
    outline.geometry.dispose();
    outline = null;
  }
  object.traverse((child) => {
    if (!child.isMesh) return;
    restore.push([child, child.material]);
    const copy = child.material.clone();
    if (copy.emissive) copy.emissive.copy(HIGHLIGHT);
    else copy.color = HIGHLIGHT.clone();
    child.material = copy;
  });
  outline = new THREE.BoxHelper(object, 0xff6000);
  scene.add(outline);
  for (const [key, button] of buttons) button.classList.toggle('selected', key === path);
  state.highlighted = path;
  render();
  return true;
}

// The tree: the package's groups and instances as nested lists, in scene order.
function buildTree(root) {
  const top = document.createElement('ul');
  const walk = (object, list) => {
    for (const child of object.children) {
      const data = child.userData || {};
      if (!data.nomInstance && !data.nomGroup) {
        walk(child, list); // the package's root and the geometry's own nodes
        continue;
      }
      const item = document.createElement('li');
      const button = document.createElement('button');
      const ident = data.nomPath.split('/').pop();
      button.textContent = data.nomName && data.nomName !== ident ? ident + ' - ' + data.nomName : ident;
      if (data.nomGroup) button.className = 'group';
      if (data.nomInstance) {
        button.title = data.nomPath + ' (' + data.nomProduct + ')';
        button.addEventListener('click', () => select(data.nomPath));
        buttons.set(data.nomPath, button);
        if (child.children.some((c) => c.userData && c.userData.nomMissing)) {
          button.classList.add('missing');
        }
      }
      item.appendChild(button);
      const sub = document.createElement('ul');
      walk(child, sub);
      if (sub.children.length) item.appendChild(sub);
      list.appendChild(item);
    }
  };
  walk(root, top);
  document.getElementById('tree').appendChild(top);
}

function loaded(gltf) {
  const root = gltf.scene;
  const products = new Set();
  const missing = new Set(); // products shown as placeholders
  root.traverse((object) => {
    const data = object.userData || {};
    if (data.nomInstance) {
      state.instances += 1;
      if (!instances.has(data.nomPath)) instances.set(data.nomPath, object);
      products.add(data.nomProduct.toLowerCase());
      if (data.nomVisible === false) object.visible = false;
    }
    if (data.nomMissing) {
      state.placeholders += 1;
      missing.add(object.parent.userData.nomProduct.toLowerCase());
      object.traverse((part) => {
        if (part.material) {
          part.material = new THREE.LineBasicMaterial({ color: 0xff0000 });
        }
      });
    }
  });
  state.products = products.size;
  state.missing = missing.size;
  scene.add(root);
  buildTree(root);
  resize();
  frame(root);
  render();
  state.ready = true;
}

function failed(error) {
  state.error = String(error && error.message ? error.message : error);
  document.getElementById('error').textContent = 'The scene cannot be shown: ' + state.error;
  state.ready = true;
}

showFacts();
resize();
controls.addEventListener('change', render);
window.addEventListener('resize', () => {
  resize();
  render();
});
try {
  const data = decode(document.getElementById('nom-glb').textContent.trim());
  new GLTFLoader().parse(data, '', loaded, failed);
} catch (error) {
  failed(error);
}
