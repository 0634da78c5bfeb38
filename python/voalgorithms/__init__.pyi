from collections.abc import Callable
from typing import Any, Literal, Optional, TypedDict, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

__version__: str

_Pose = Union["Trafo", ArrayLike]
_Scan = Union["PointSet", ArrayLike, tuple[ArrayLike, ArrayLike]]
_Preset = Literal["auto", "dense", "scan", "thorough"]
_Space = Literal["RGB", "sRGB", "XYZ", "Lab", "DIN99o", "HSL", "HSV"]

class _Test(TypedDict):
    name: str
    setting: str
    unit: str
    value: Optional[float]
    limit: Optional[float]
    isAtMost: bool
    outcome: Literal["passed", "failed", "not run"]
    stage: str

class Trafo:
    def __init__(self, matrix: ArrayLike = ...) -> None: ...
    @staticmethod
    def from_quaternion(quaternion: ArrayLike, translation: ArrayLike) -> Trafo: ...
    @property
    def matrix(self) -> NDArray[np.float64]: ...
    @property
    def quaternion(self) -> NDArray[np.float64]: ...
    def apply(self, points: ArrayLike) -> NDArray[np.float32]: ...
    def rotate(self, vectors: ArrayLike) -> NDArray[np.float32]: ...
    def inverse(self) -> Trafo: ...
    def rotation_distance(self, other: _Pose) -> float: ...
    def __matmul__(self, other: _Pose) -> Trafo: ...
    def __bool__(self) -> bool: ...
    def __array__(self, dtype: Any = None) -> NDArray[Any]: ...

class PointSet:
    def __init__(
        self,
        points: ArrayLike,
        normals: ArrayLike,
        *,
        feature_points: ArrayLike,
        feature_normals: ArrayLike,
        features: ArrayLike,
    ) -> None: ...
    @property
    def points(self) -> NDArray[np.float32]: ...
    @property
    def normals(self) -> NDArray[np.float32]: ...
    @property
    def feature_points(self) -> NDArray[np.float32]: ...
    @property
    def feature_normals(self) -> NDArray[np.float32]: ...
    @property
    def features(self) -> NDArray[np.float32]: ...
    @property
    def ellipsoid(self) -> NDArray[np.float32]: ...
    def transformed(self, pose: _Pose) -> PointSet: ...
    def overlap_area(self, flt: PointSet, pose: _Pose, search_radius: float, area_radius: float) -> float: ...
    def to_document(self) -> Document: ...
    @staticmethod
    def from_document(document: Document) -> PointSet: ...
    def __len__(self) -> int: ...

class Result:
    trafo: Trafo
    objection: str
    tests: list[_Test]
    clusterSize: int
    resultType: int
    fStart_OverlapRatio: float
    iStart_NumberOfInliers: int
    fStart_RMSE: float
    fStart_MismatchesPerMatchRatio: float
    fStop_OverlapRatio: float
    fStop_OverlapArea: float
    iStop_NumberOfInliers: int
    fStop_RMSE: float
    fStop_MismatchesPerMatchRatio: float
    iStop_Iterations: int
    fStop_SmallBigRatio: float
    ellipsoid: NDArray[np.float32]
    def to_dict(self) -> dict[str, Any]: ...
    def __bool__(self) -> bool: ...

class Registration:
    found: bool
    reason: str
    best: Optional[Result]
    results: list[Result]
    refused: list[Result]
    statistics: dict[str, Any]
    settings: dict[str, Any]
    fix: PointSet
    flt: PointSet
    feature_seconds: float
    search_seconds: float
    def to_dict(self) -> dict[str, Any]: ...
    def __bool__(self) -> bool: ...

class Clusters:
    labels: NDArray[np.int32]
    centres: NDArray[np.float32]
    sizes: NDArray[np.uint32]
    dunn_index: float
    def __len__(self) -> int: ...

class Fit:
    parameters: NDArray[np.float64]
    rmse: float
    result: str
    covariance: NDArray[np.float64]
    def __bool__(self) -> bool: ...

class Document:
    def __init__(self, values: dict[str, Any] = ...) -> None: ...
    @staticmethod
    def from_bytes(data: bytes) -> Document: ...
    def to_bytes(self) -> bytes: ...
    def to_dict(self) -> dict[str, Any]: ...
    def items(self) -> list[tuple[str, Any]]: ...
    def to_json(self) -> str: ...
    def __len__(self) -> int: ...

def estimate_normals(
    points: ArrayLike, *, viewpoint: Optional[ArrayLike] = None, neighbours: int = 16
) -> NDArray[np.float32]: ...
def compute_features(
    points: ArrayLike,
    normals: Optional[ArrayLike] = None,
    *,
    dFeatureRadius: Optional[float] = None,
    uiMinCurvatureQuality: int = 25,
    working_spacing: Optional[float] = None,
    threads: int = 0,
) -> PointSet: ...
def register(
    fix: _Scan,
    flt: _Scan,
    *,
    preset: _Preset = "auto",
    config: Optional[dict[str, Any]] = None,
    start: Optional[_Pose] = None,
    viewpoint: Optional[ArrayLike] = None,
    threads: int = 0,
    progress: Optional[Callable[[str, float], object]] = None,
    **settings: Any,
) -> Registration: ...
def icp(
    fix: _Scan,
    flt: _Scan,
    start: Optional[_Pose] = None,
    *,
    reference: Optional[_Pose] = None,
    config: Optional[dict[str, Any]] = None,
    **settings: Any,
) -> Result: ...
def derive_settings(fix: _Scan, flt: _Scan, *, preset: _Preset = "auto") -> dict[str, Any]: ...
def default_config() -> dict[str, Any]: ...
def default_icp_config() -> dict[str, Any]: ...
def config_to_document(config: dict[str, Any]) -> Document: ...
def config_from_document(document: Document) -> dict[str, Any]: ...
def mean_shift(points: ArrayLike, bandwidth: float) -> Clusters: ...
def mean_shift_3d(points: ArrayLike, bandwidth: float) -> Clusters: ...
def procrustes(a: ArrayLike, b: ArrayLike, weights: Optional[ArrayLike] = None) -> NDArray[np.float64]: ...
def point_to_plane(
    src: ArrayLike, dst: ArrayLike, normals: ArrayLike, weights: Optional[ArrayLike] = None
) -> NDArray[np.float64]: ...
def nls_solve(
    residual: Callable[[NDArray[np.float64]], ArrayLike],
    start: ArrayLike,
    *,
    sigma: Optional[ArrayLike] = None,
    jacobian: Optional[Callable[[NDArray[np.float64]], ArrayLike]] = None,
    bounds: Optional[ArrayLike] = None,
    equalities: Optional[tuple[ArrayLike, ArrayLike]] = None,
    inequalities: Optional[tuple[ArrayLike, ArrayLike]] = None,
    robust: bool = False,
    refinement: bool = True,
    max_iterations: int = 100,
    tau: float = 1e-3,
    multistarts: int = 0,
    sampler: Literal["gibbs", "hit-and-run"] = "gibbs",
) -> Fit: ...
def lp_solve(A: ArrayLike, b: ArrayLike, c: ArrayLike) -> NDArray[np.float64]: ...
def d_optimal_design(candidates: ArrayLike, size: int, *, starts: int = 10) -> tuple[NDArray[np.int32], float]: ...
def convert_colours(colours: ArrayLike, source: _Space, target: _Space) -> NDArray[np.float64]: ...
def colour_difference(
    a: ArrayLike, b: ArrayLike, formula: Literal["CIEDE2000", "DIN99o"] = "CIEDE2000"
) -> NDArray[np.float64]: ...
def rle_compress(data: Any, *, escape: int = -1, move_to_front: bool = False) -> bytes: ...
def rle_uncompress(data: Any, *, max_size: int = 1073741824, move_to_front: bool = False) -> bytes: ...
