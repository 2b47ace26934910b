# Six lowest pairs of a Laplacian on a grid, with the result and the vectors in files.
ves solve --model laplace2d:50x50 -k 6 --json run.json --vectors run.mtx

# The same on two processes, from those vectors, drawn as residuals against iterations.
mpirun -np 2 ves solve --model laplace2d:50x50 -k 6 --start run.mtx --tol 1e-10 --plot run.svg

# Residuals, orthogonality and order of what the files hold, recomputed.
ves check run.json
