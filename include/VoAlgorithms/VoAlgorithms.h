#pragma once

// Everything that the library offers.
#include "VoAlgorithms/export.h"
#include "VoAlgorithms/version.h"

#include "VoAlgorithms/platform/gpgpu.h"
#include "VoAlgorithms/platform/logging.h"

#include "VoAlgorithms/kdtree/range.h"
#include "VoAlgorithms/kdtree/tkdtree.h"
#include "VoAlgorithms/kdtree/vector.h"

#include "VoAlgorithms/numerics/cbmatrix4.h"
#include "VoAlgorithms/numerics/cpmatrix.h"
#include "VoAlgorithms/numerics/ctrafo.h"
#include "VoAlgorithms/numerics/lapack.h"
#include "VoAlgorithms/numerics/quaternion.h"
#include "VoAlgorithms/numerics/symsolvers.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"

#include "VoAlgorithms/bson/element.h"
#include "VoAlgorithms/bson/registration.h"

#include "VoAlgorithms/clustering/cdigraph.h"
#include "VoAlgorithms/clustering/cmeanshiftclusterer.h"
#include "VoAlgorithms/clustering/cmeanshiftclusterer3d.h"
#include "VoAlgorithms/clustering/csearchgrid.h"
#include "VoAlgorithms/clustering/thashmap.h"

#include "VoAlgorithms/solvers/cdoptimaldesign.h"
#include "VoAlgorithms/solvers/clpsolver.h"
#include "VoAlgorithms/solvers/cnlsobjectivefunction.h"
#include "VoAlgorithms/solvers/cnlssolver.h"

#include "VoAlgorithms/prereg/cdirtymap.h"
#include "VoAlgorithms/prereg/cfpfhclusteranalysis.h"
#include "VoAlgorithms/prereg/cfpfhdatasource.h"
#include "VoAlgorithms/prereg/cfpfhpointset.h"
#include "VoAlgorithms/prereg/cfpfhpreregistration.h"
#include "VoAlgorithms/prereg/configurationfpfh.h"
#include "VoAlgorithms/prereg/configurationicp.h"
#include "VoAlgorithms/prereg/cpointfeaturehistogram.h"
#include "VoAlgorithms/prereg/cpointset.h"
#include "VoAlgorithms/prereg/ellipsoid.h"
#include "VoAlgorithms/prereg/icpresult.h"
#include "VoAlgorithms/prereg/ipointset.h"
#include "VoAlgorithms/prereg/ipreregistration.h"

#include "VoAlgorithms/documents/records.h"

#include "VoAlgorithms/colour/channelrange.h"
#include "VoAlgorithms/colour/converttolab.h"
#include "VoAlgorithms/colour/din99o.h"
#include "VoAlgorithms/colour/hsl.h"
#include "VoAlgorithms/colour/hsv.h"
#include "VoAlgorithms/colour/lab.h"
#include "VoAlgorithms/colour/rgb.h"
#include "VoAlgorithms/colour/transfercurve.h"
#include "VoAlgorithms/colour/xyz.h"

#include "VoAlgorithms/runtime/csharedmemory.h"
#include "VoAlgorithms/runtime/csharedmemorypipe.h"
#include "VoAlgorithms/runtime/rle.h"
