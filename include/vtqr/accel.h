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

/* Per-triangle record used by the ray/triangle test (40 bytes). */
typedef struct VtqrTriangleAccel {
  Vtq32u axes; /* bits 0-1 v, bits 2-3 u, bits 4-5 k (dominant normal axis); bit 31: N[u], N[v]
                  negligible; 0: degenerate triangle, never hit */
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

/* Writes the size of one VtqrTriangleAccel (40) to *pSize. Checks: pSize. */
VTQR_API VtqStatus vtqrTriangleAccelGetSize(Vtq32s* pSize);

/* Fills triCount records, one per triangle, in triangle order. No pointer is checked; a
 * triCount below 1 writes nothing. Always returns vtqStsOk. */
VTQR_API VtqStatus vtqrTriangleAccelInit(VtqrTriangleAccel* pAccel, const Vtq32f* pVert,
                                         const Vtq32s* pTriIndex, int triCount);

/* Writes the scene bound box (x min, y min, z min, x max, y max, z max), widened by a margin of
 * 1e-4 of its largest coordinate. Checks: pVert (pBound is not tested). */
VTQR_API VtqStatus vtqrSetBoundBox_32f(const Vtq32f* pVert, int vertCount, Vtq32f pBound[6]);

/* KD-tree ------------------------------------------------------------------------------------ */

/* One 8-byte node of a KD-tree block; the root is the first node. */
typedef struct VtqrKDTreeNode {
  Vtq32s w0; /* >= 0: interior; axis = w0 & 3, children at byte offset (w0 & ~7).
                <  0: leaf. */
  Vtq32s w1; /* interior: the split coordinate's bits (Vtq32f); leaf: see vtqrKDTreeBuildAlloc */
} VtqrKDTreeNode;

/* Build algorithm selectors. */
enum VtqrKDTreeAlg {
  KDTreeAlgSimple = 0x499D3DC2, /* one leaf holding every triangle */
  KDTreeAlgSAH = 0x2D07705B     /* surface-area-heuristic build within a memory budget */
};

typedef struct VtqrKDTreeBuildParams {
  Vtq32u algorithm; /* KDTreeAlgSimple or KDTreeAlgSAH */
  Vtq32u maxDepth;  /* at most 50 */
  Vtq32f factor;    /* in [0, 1]; KDTreeAlgSAH only */
  Vtq32u memoryMB;  /* memory budget in MiB, at least 32; KDTreeAlgSAH only */
  Vtq64u reserved;  /* reserved, ignored */
} VtqrKDTreeBuildParams;

/* Builds a KD-tree over the mesh; the block is allocated with vtqMalloc and released with
 * vtqrKDTreeFree. */
VTQR_API VtqStatus vtqrKDTreeBuildAlloc(VtqrKDTreeNode** ppTree, const Vtq32f* pVert,
                                        const Vtq32s* pTriIndex, int vertCount, int triCount,
                                        int* pTreeSize, const VtqrKDTreeBuildParams* pParams);

/* Releases a tree from vtqrKDTreeBuildAlloc (NULL does nothing). Returns vtqStsOk. */
VTQR_API VtqStatus vtqrKDTreeFree(VtqrKDTreeNode* pTree);

#ifdef __cplusplus
}
#endif

#endif /* VTQR_ACCEL_H */
