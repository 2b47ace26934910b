import scipy.sparse as sparse
import ves

line = sparse.diags([-1, 2, -1], [-1, 0, 1], shape=(100, 100))
A = sparse.kronsum(line, line)
values, vectors = result = ves.eigsh(A, k=6)
print(values)
print(result.summary())
