#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/numerics/tmatrix.h"
#include "VoAlgorithms/numerics/tvector.h"
#include "VoAlgorithms/runtime/aprogressmeter.h"

#include <optional>

namespace VoAlgo {

class CNLSObjectiveFunction;
namespace detail {
class Halfspaces;
}

/// Nonlinear least squares under linear constraints: a damped Gauss-Newton iteration (Levenberg-Marquardt) in the
/// variables that the equalities leave free, inside the polytope of the inequalities, optionally robust and from many
/// starts. Every result depends on the derivatives: read the warning about the default ones in CNLSObjectiveFunction
/// when a parameter is much smaller than 1.
///
/// With residuals r, their derivatives J, weights W = diag(1/σᵢ²) and damping µ, a step h solves
/// (JᵀWJ + µI)·h = −JᵀWr. It is accepted when it lowers ‖r‖²; µ then falls as the decrease that the linear model
/// predicted comes true, otherwise µ rises.
///
/// A step that would leave the polytope ends on the first row that it meets; from a row, the next step slides along it
/// up to the next row. No iterate is outside by more than rounding, and bounds hold exactly. (Numerical derivatives
/// evaluate `Error` slightly beyond.) A start outside is replaced by a vertex of the polytope.
///
/// Robust: the larger a residual, the smaller its weight, by Tukey's biweight (1 − (u/c)²)², c = 4.6851, u = r ÷ scale;
/// beyond c it is 0. The scale is the median absolute deviation ÷ 0.6745, which a minority of outliers cannot spoil.
/// Run a plain fit first and start the robust one from its result: far from the solution all residuals look like
/// outliers. Deliberate: a residual of exactly 0 has no such weight (0 ÷ 0), and the fit ends with "LS solution
/// failed".
///
/// This plain iteration may stop short of the minimum of rᵀWr ("small step size", in the third case "small gradient"):
/// - on rows: the sliding step need not be a descent step, a corner ends the fit, and a start on a bound stays there;
/// - with weights other than 1, since steps must lower the unweighted residuals;
/// - when robust and far off: residuals that lie close together on one side of 0 have no weight at all;
/// - in a long valley: the normal equations lose directions that matter less than 1.5e-8 of the strongest one.
///
/// Random starts need bounds on both sides of every parameter. The first random walk begins at the fit, the others at
/// the start, which has to lie inside.
///
/// `SetRefinement(true)` removes these limits: when a sliding step is not accepted, the same iteration tries the best
/// step along the rows at hand; a weighted fit that stops goes on with steps that must lower rᵀWr; before it ends,
/// every fit tries steps that are computed from √W·J instead of the normal equations; while fewer residuals than free
/// variables have a robust weight, the scale is the median of |r| ÷ 0.6745; and random walks leave bounds and skip
/// directions without bounds. A fit that has found the minimum spends one or two more evaluations on this.
///
/// Bad input ends as a result, never as an exception (exceptions of `Error` pass through), and every call ends:
/// - "LS solution failed": a start that is not n finite numbers; a tau that is negative or not a number; residuals,
///   derivatives or standard deviations of a wrong shape, or not finite where the fit stands. A step to residuals that
///   are not finite is not accepted;
/// - "constraints violated": inequalities without a common point or with something that is not a number;
/// - "almost singular matrix": a step of more than 2⁵² times ‖z‖ + 4.4e-16. From z = 0 exactly, that is a length of 2:
///   start with another z when parameters may be as large.
///
/// A solver keeps nothing between calls but its settings: equal inputs give equal bits.
///
/// Sources: K. Madsen, H. B. Nielsen, O. Tingleff, Methods for Non-Linear Least Squares Problems, DTU 2004, section 3.2
/// (with H. B. Nielsen's damping, IMM-REP-1999-05); A. E. Beaton, J. W. Tukey, Technometrics 16 (1974) 147-185 (the
/// biweight); R. L. Smith, Operations Research 32 (1984) 1296-1308 (hit-and-run sampling).
class VOALGO_API CNLSSolver {
public:
    /// Why a fit stopped: `(++)` converged, `(-)` usable but doubtful, `(--)` failed.
    enum EResult {
        SmallGradient = 0,       ///< "small gradient (++)": or no residual is left
        SmallStep = 1,           ///< "small step size (++)"
        MaxIterExceeded = 2,     ///< "maxiter exceeded (-)"
        AlmostSingular = 3,      ///< "almost singular matrix (-)": a step of absurd length
        LSSolutionFailed = 4,    ///< "LS solution failed (--)"
        ConstraintsViolated = 5, ///< "constraints violated (-)": there is no feasible start
    };
    /// How random starts are drawn: from the uniform distribution over the polytope, as a random walk in it.
    enum ESampler {
        Gibbs = 0,     ///< one parameter after the other
        HitAndRun = 1, ///< all at once, along a random direction
    };

    /// A solver of one problem.
    /// @param problem          borrowed; must outlive the solver.
    /// @param robust           whether residuals are weighted by their size, see above.
    /// @param samplingSweeps   steps of the sampler for each random start; below 1: 2·n.
    CNLSSolver(CNLSObjectiveFunction& problem, bool robust, int samplingSweeps);

    /// Fits the problem's parameters; says why it stopped.
    /// @param params        in: the start, n parameters, of which the free variables count. Out: the best fit;
    ///               unchanged when there was no feasible or usable start.
    /// @param rmse          out: ‖r‖/√m of the unweighted residuals at the fit, in their unit; +∞ when there was no
    ///               start to compute them at, 0 when m = 0 (the fit then ends at once with "small gradient").
    /// @param maxIter       largest number of iterations of one fit; below 1: none, params becomes the feasible start.
    /// @param tau           damping at the start, relative to the largest diagonal element of JᵀWJ; ≥ 0. 1e-6 for a
    ///               start believed good, 1e-3 or 1 otherwise.
    /// @param multistarts   number of additional fits from random starts; needs inequalities, which should bound every
    ///               parameter on both sides. The first random walk begins at the fit, the others at the start. A plain
    ///               one from an upper bound or from outside ends at infinity and is left out; a refined one does not
    ///               go where there is no bound. The best fit is returned, never one worse than that from `params`. The
    ///               series ends early at a residual of zero, or after five failures in a row.
    /// @param sampler       how random starts are drawn.
    EResult Run(TVector<double>& params, double& rmse, int maxIter, double tau, int multistarts, ESampler sampler);

    /// Whether a fit reports its progress on the standard error stream, in lines that begin with "(NLS)". Default: yes.
    void SetLogging(bool logging) { logging_ = logging; }
    /// Shows the fits of a series of starts; cancelled, the best fit so far is the result. Borrowed; null for none.
    void SetProgress(AProgressMeter* progress) { progress_ = progress; }
    /// Overrides the constructor's choice.
    void SetRobustness(bool robust) { robust_ = robust; }
    /// Whether fits go on where the plain iteration may stop short of the minimum, see above. Default: no.
    void SetRefinement(bool refinement) { refinement_ = refinement; }
    /// Stored, but without effect: steps are always projected.
    void SetUseProjectionOfUpdates(bool use) { useProjectionOfUpdates_ = use; }

    /// The text that the log shows for a result; empty for other values.
    [[nodiscard]] static const char* ResultText(EResult result);

    ///@{
    /// ψ(u) of robust fitting: u near 0, bounded. Huber's: u up to |u| = 1.345, then constant. Tukey's:
    /// u·(1 − (u/c)²)² up to |u| = c = 4.6851, then 0.
    [[nodiscard]] static double psiHuber(double u);
    [[nodiscard]] static double psiTukey(double u);
    ///@}

private:
    struct Fit;
    struct Random;
    enum ETrial { Accepted, Rejected, Small, Absurd, Failed };

    EResult run(TVector<double>& params, double& rmse, int maxIter, double tau);
    bool start(const TVector<double>& params, Fit& fit);
    bool makeFeasible(Fit& fit);
    bool linearise(Fit& fit);
    static void setDamping(Fit& fit, double tau);
    static bool nextStage(Fit& fit, double tau);
    static double sumOfSquares(const Fit& fit, const TVector<double>& r);
    std::optional<EResult> iterate(Fit& fit, int iteration);
    ETrial tryStep(Fit& fit, const TVector<double>& h, bool cut);
    static std::optional<TVector<double>> faceStep(Fit& fit, const TVector<double>& full);
    bool evaluate(Fit& fit);
    bool computeWeight(const TVector<double>& r, TVector<double>& w);
    [[nodiscard]] double residualRMSE(const TVector<double>& r) const;

    static TVector<double> cutBack(const detail::Halfspaces& polytope, const TVector<double>& z,
                                   const TVector<double>& h, bool projected);
    static void settle(const detail::Halfspaces& polytope, TVector<double>& z);
    static bool checkConstraints(const detail::Halfspaces& polytope, const TVector<double>& z);
    static void shrinkConstraints(const detail::Halfspaces& polytope, TVector<double>& b, double epsilon);
    void distanceToConstraints(const detail::Halfspaces& polytope, const TVector<double>& p, const TVector<double>& d,
                               double& lo, double& hi) const;

    bool warmUp(const detail::Halfspaces& polytope, const TVector<double>& start, TVector<double>& point,
                ESampler sampler, Random& random) const;
    void moveAlong(const detail::Halfspaces& polytope, const TVector<double>& d, TVector<double>& p,
                   Random& random) const;
    void sampleGibbs(const detail::Halfspaces& polytope, TVector<double>& p, Random& random) const;
    void sampleHitAndRun(const detail::Halfspaces& polytope, TVector<double>& p, Random& random) const;

    void log(const char* format, ...) const;

    CNLSObjectiveFunction& problem_;
    TVector<double> work_;
    bool logging_ = true;
    AProgressMeter* progress_ = nullptr;
    bool useProjectionOfUpdates_ = true;
    bool robust_;
    int samplingSweeps_;
    bool refinement_ = false;
};

} // namespace VoAlgo
