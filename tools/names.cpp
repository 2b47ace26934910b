#include "names.h"

namespace VesTools {

const Names<VesScalarType> scalarNames = {{"double", VES_DOUBLE},
                                          {"float", VES_FLOAT},
                                          {"complex", VES_COMPLEX_DOUBLE},
                                          {"complex-float", VES_COMPLEX_FLOAT}};

const Names<VesSolverType> solverNames = {
    {"lobpcg", VES_LOBPCG}, {"lobpcg-batch", VES_LOBPCG_BATCH}, {"ppcg", VES_PPCG}};

const Names<VesDenseEigenSolverType> denseNames = {{"lapack", VES_LAPACK_DIAG},
                                                   {"lapack-lowest", VES_LAPACK_LOWEST_DIAG},
                                                   {"scalapack", VES_SCALAPACK_DIAG},
                                                   {"elpa", VES_ELPA_DIAG},
                                                   {"elpa-two-stage", VES_ELPA_TWO_STAGE_DIAG}};

const Names<Precision> precisionNames = {
    {"auto", Precision::automatic}, {"double", Precision::full}, {"mixed", Precision::mixed}};

const Names<VesOrthogonalizerType> orthogonalizerNames = {{"cholesky-qr", VES_CHOLESKY_QR},
                                                          {"svd-qr", VES_SVD_QR}};

const Names<VesOrthoProjectorType> projectorNames = {{"gram-schmidt", VES_GRAM_SCHMIDT}};

const Names<Preconditioner> preconditionerNames = {{"auto", Preconditioner::automatic},
                                                   {"none", Preconditioner::none},
                                                   {"jacobi", Preconditioner::jacobi},
                                                   {"ic", Preconditioner::ic},
                                                   {"shift-invert", Preconditioner::shiftInvert},
                                                   {"inner", Preconditioner::inner}};

} // namespace VesTools
