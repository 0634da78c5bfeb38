"""Registers 3D scans and says whether the answer can be trusted; with the numerical algorithms around it.

Lengths are millimetres, angles radians. The pose of a result maps coordinates of 'flt' into the frame of 'fix'.

>>> import voalgorithms as vo
>>> fix, flt = vo.read("fix.ply"), vo.read("flt.ply")
>>> found = vo.register(fix, flt)
>>> if found:
...     vo.write("moved.ply", flt.transformed(found.pose))
... else:
...     print(found.reason)
"""

from . import _processor  # first: raises ImportError where the rest would die of an illegal instruction
from ._core import (
    Clusters,
    DisjointSets,
    Document,
    Fit,
    NaturalSpline,
    NaturalSplineCurve,
    PointSet,
    Polynomial,
    Registration,
    Result,
    Scan,
    Trafo,
    TransferCurve,
    __version__,
    colour_difference,
    compute_features,
    config_from_document,
    config_to_document,
    convert_colours,
    d_optimal_design,
    default_config,
    default_icp_config,
    derive_settings,
    distance_transform,
    estimate_normals,
    fill_triangle,
    icp,
    in_circle,
    line_pixels,
    lp_solve,
    mean_shift,
    mean_shift_3d,
    nls_solve,
    orientation,
    point_to_plane,
    procrustes,
    read,
    register,
    rle_compress,
    rle_uncompress,
    shortest_path,
    shortest_paths,
    spanning_tree,
    strong_components,
    topological_order,
    tour,
    tour_of_distances,
    voxel_down,
    write,
)

__all__ = [name for name in dir() if not name.startswith("_")]
