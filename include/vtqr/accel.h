/* vtqr: acceleration structures for triangle meshes. */
#ifndef VTQR_ACCEL_H
#define VTQR_ACCEL_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Triangle acceleration records ---------------------------------------------------------------
 *
 * Meshes are a vertex array of packed Vtq32f x, y, z triples and a triangle index array of four
 * Vtq32s per triangle (entries 0..2 are vertex numbers, entry 3 is not read). */

/* Per-triangle record used by the ray/triangle test (40 bytes).
 *
 * For a triangle with index entries (i0, i1, i2) the base point is P = vertex i2, the edges are
 * E1 = vertex i0 - P and E2 = vertex i1 - P, and N = E1 x E2. k is the axis of the largest |N|
 * component (ties go to x, then y, then z), u < v are the two other axes, and s is +1 for k = x
 * or z and -1 for k = y (projecting along y reverses the handedness of the (x, z) plane).
 * Everything is computed in double and rounded once to float. */
typedef struct VtqrTriangleAccel {
  Vtq32u axes; /* bits 0-1 v, bits 2-3 u, bits 4-5 k; bit 31 set when |N[u]| and |N[v]| are
                  both below the double epsilon (2^-52): the triangle lies in a plane
                  perpendicular to axis k, and nu = nv = 0 exactly. The whole record is zero
                  for a triangle with N[k] = 0 (zero area), which is never hit. */
  Vtq32f nu;   /* N[u] / N[k] */
  Vtq32f pk;   /* P[k] */
  Vtq32f nv;   /* N[v] / N[k] */
  Vtq32f pu;   /* P[u] */
  Vtq32f pv;   /* P[v] */
  Vtq32f e2u;  /* s * E2[u] / N[k] */
  Vtq32f e2v;  /* s * E2[v] / N[k] */
  Vtq32f e1u;  /* s * E1[u] / N[k] */
  Vtq32f e1v;  /* s * E1[v] / N[k] */
} VtqrTriangleAccel;

/* Writes the size of one VtqrTriangleAccel (40) to *pSize. A NULL pSize returns
 * vtqStsErrNullPtr. */
VTQR_API VtqStatus vtqrTriangleAccelGetSize(Vtq32s* pSize);

/* Fills triCount records, one per triangle, in triangle order (record t belongs to index entries
 * 4t..4t+2). No pointer is checked, and vertex indices are trusted; a triCount below 1 writes
 * nothing. Always returns vtqStsOk. */
VTQR_API VtqStatus vtqrTriangleAccelInit(VtqrTriangleAccel* pAccel, const Vtq32f* pVert,
                                         const Vtq32s* pTriIndex, int triCount);

/* Writes the scene bound box (x min, y min, z min, x max, y max, z max) of vertCount vertices:
 * the per-axis minimum and maximum in float, each widened by m = 1e-4f times the largest of the
 * six magnitudes (at least the smallest normal float), so that rays grazing the outermost
 * vertices survive the slab test. NaN coordinates are ignored. A vertCount of 0 or less gives
 * the inverted box (FLT_MAX - m as minimum, -FLT_MAX + m as maximum, m = 1e-4f * FLT_MAX), which
 * no ray enters. A NULL pVert returns vtqStsErrNullPtr; pBound is not tested. */
VTQR_API VtqStatus vtqrSetBoundBox_32f(const Vtq32f* pVert, int vertCount, Vtq32f pBound[6]);

/* KD-tree ------------------------------------------------------------------------------------ */

/* One 8-byte node of a KD-tree block. A tree is one block from vtqMalloc: the root is its first
 * node, every child pair lies further on, and the out-of-line leaf lists follow all nodes.
 *
 * Interior node, w0 >= 0: split axis = w0 & 3 (0 x, 1 y, 2 z); w1 holds the split coordinate's
 *   Vtq32f bits; the two children are adjacent nodes at byte offset (w0 & ~7) from this one,
 *   the one below the plane (smaller coordinates) first.
 * Leaf, w0 < 0; w1 tells the kind:
 *   w1 == 0  empty leaf (the builder writes w0 = INT32_MIN).
 *   w1 > 0   w1 triangle numbers (Vtq32s) at byte offset -w0 from the node.
 *   w1 < 0   compact leaf of n = w1 & 3 (1..3) triangles held in the node; with
 *            a = w0 & 0x7FFFFFFF and m = (w1 & 0x7FFFFFFC) >> 2 they are
 *            n = 1: a;  n = 2: a, m;  n = 3: m - (a >> 16), m, m + (a & 0xFFFF).
 * A triangle number is the triangle's position in the index array (and in the
 * VtqrTriangleAccel array). The SAH build lists each leaf's triangles in ascending order; it
 * uses the compact form whenever the numbers fit it (m below 2^29, and for three triangles
 * distances from the middle one below 2^15 and 2^16) and the out-of-line form otherwise. */
typedef struct VtqrKDTreeNode {
  Vtq32s w0;
  Vtq32s w1;
} VtqrKDTreeNode;

/* Build algorithm selectors. */
enum VtqrKDTreeAlg {
  KDTreeAlgSimple = 0x499D3DC2, /* one leaf holding every triangle */
  KDTreeAlgSAH = 0x2D07705B     /* surface-area-heuristic build within a memory budget */
};

typedef struct VtqrKDTreeBuildParams {
  Vtq32u algorithm; /* KDTreeAlgSimple or KDTreeAlgSAH; anything else is rejected */
  Vtq32u maxDepth;  /* deepest node, the root being depth 0; at most 50 (compared unsigned) */
  Vtq32f factor;    /* KDTreeAlgSAH: in [0, 1] (NaN is rejected). A higher factor lowers the
                       bar a split must clear: 0 gives shallow trees with larger leaves, 1 the
                       deepest trees. */
  Vtq32u memoryMB;  /* KDTreeAlgSAH: memory budget in MiB (2^20 bytes), at least 32 */
  Vtq64u reserved;  /* reserved: ignored by both algorithms, any value is accepted */
} VtqrKDTreeBuildParams;

/* Builds a KD-tree over the mesh (vertCount vertices, triCount triangles). On success *ppTree
 * receives a block from vtqMalloc, to be released with vtqrKDTreeFree, and *pTreeSize its size
 * in bytes. Neither output is written when the call fails.
 *
 * Checks, in order (the first failure decides, before anything is allocated):
 *   1. ppTree, pVert, pTriIndex or pTreeSize null: vtqStsErrNullPtr.
 *   2. vertCount < 0 or triCount < 0: vtqStsErrSize.
 *   3. pParams null: vtqStsErrNullPtr.
 *   4. algorithm neither selector: vtqStsErrBadArg.
 *   5. maxDepth > 50: vtqStsErrOutOfRange; for KDTreeAlgSAH also factor outside [0, 1] or NaN:
 *      vtqStsErrOutOfRange.
 *   6. KDTreeAlgSAH: (memoryMB << 19) < 2^24 in 32-bit unsigned arithmetic, i.e. below 32 MiB:
 *      vtqStsErrNoMem. The budget is memoryMB << 20, also in 32 bits, so budgets of 4096 MiB
 *      and more wrap around.
 *
 * KDTreeAlgSimple writes one leaf (w0 = -16, w1 = triCount, two zero words, then the numbers
 * 0 .. triCount-1); *pTreeSize = 4 * triCount + 16. It returns vtqStsErrNoMem, outputs
 * untouched, when the allocation fails or the size would not fit an int.
 *
 * KDTreeAlgSAH keeps to its budget by this accounting:
 *   - Up front: 12 vertCount + 84 triCount + 33,554,912 bytes (computed in 64 bits) must not
 *     exceed the budget, else vtqStsErrNoMem before anything is allocated. 32 MiB therefore
 *     never suffices.
 *   - Charged next: a 400-byte context, thirteen per-triangle arrays of 4 triCount bytes, and
 *     two pools of (need & ~0xFFFFFF) + 2^24 bytes for the needs 36 triCount and 48 vertCount.
 *   - Build nodes (48 bytes each) and leaf lists come from 16 MiB arena blocks, each charged
 *     0x1000028 bytes (16 MiB plus a 40-byte header) and opened only while that much is left.
 *     A leaf list longer than a block gets a block of its own, charged its length plus 40.
 *   Any charge the budget cannot cover, a failed allocation, or a tree block that would exceed
 *   2^31 - 1 bytes ends the build with vtqStsErrMemBudget; every temporary is released on every
 *   path. The charges are a fixed rule, so a status does not depend on the allocator; the build's
 *   actual scratch memory is separate from them. A typical small mesh needs about 49 MiB.
 *
 * The SAH build: triangles with a vertex number outside [0, vertCount) or a coordinate that is
 * not finite are left out of the tree (they can never be hit). The root cell is the bounds of the
 * remaining triangles. A node of N triangles with cell extents dx, dy, dz has leaf cost
 * L = N (dx (dy + dz) + dy dz); it becomes a leaf when its depth equals maxDepth, when it holds
 * no triangle, or unless its best split costs c with N (L - c) > max(1e-5, q L), where
 * q = (10 - 9 factor) * 0.5057569742202759 rounded to Vtq32f. The costs are absolute, so cells
 * with tiny extents (L well below 1e-5) are not split further. Every node, whatever its size,
 * is searched by the same candidate rules along each axis whose extent exceeds 1e-5: an
 * empty-space cut when more than a tenth of the extent is empty at either end (weighted 0.7,
 * and ending that axis's search), otherwise planes through triangles lying in the cell's faces
 * (weighted 0.7), then a sweep over every triangle start and end with triangles in the plane
 * sent to the cheaper side; the first of equal costs wins. Ties between axes go to x over y
 * and to z over the cheapest. Every node, small or large, walks per-axis event lists sorted once
 * at the root and handed down to the children in order, so the whole build takes O(N log N)
 * time; for nodes of fewer than 76 triangles this gives exactly the split of sorting the node's
 * own starts and ends, at a third of the cost. Triangles straddling the plane of a node of fewer
 * than 76 triangles go to both children with their bounds clamped to each child's cell on the
 * split axis. In nodes of 76 or more, a straddling triangle is clipped to each child's cell (the
 * polygon, in double precision, with the bounds rounded outward to Vtq32f) and a child that the
 * triangle does not meet leaves it out; its events there come from the clipped bounds, sorted
 * and merged into the child's lists, so the build stays O(N log N). Clipping was kept because it
 * lowers the SAH cost (4-7%) and the triangle tests per ray (4-10% on smooth meshes and scans)
 * on every mesh measured, for a build about 25% longer that stays within twice a high-quality
 * BVH build. The final block places nodes depth first, the lower child's subtree directly
 * behind its pair. */
VTQR_API VtqStatus vtqrKDTreeBuildAlloc(VtqrKDTreeNode** ppTree, const Vtq32f* pVert,
                                        const Vtq32s* pTriIndex, int vertCount, int triCount,
                                        int* pTreeSize, const VtqrKDTreeBuildParams* pParams);

/* Releases a tree from vtqrKDTreeBuildAlloc by handing pTree to vtqFree; there is no check of
 * its own (NULL does nothing). Returns vtqStsOk. */
VTQR_API VtqStatus vtqrKDTreeFree(VtqrKDTreeNode* pTree);

#ifdef __cplusplus
}
#endif

#endif /* VTQR_ACCEL_H */
