# A matrix of your own is a Matrix Market file; here the second differences of order 4.
cat >chain.mtx <<'END'
%%MatrixMarket matrix coordinate real symmetric
4 4 7
1 1 2
2 1 -1
2 2 2
3 2 -1
3 3 2
4 3 -1
4 4 2
END
ves solve chain.mtx -k 2

# A graph is a list of edges; the second value says how well it hangs together.
printf '%s\n' '1 2' '2 3' '3 1' '3 4' '4 5' '5 6' '6 4' >friends.txt
ves solve --model graph:friends.txt -k 3 --tol 1e-6

# Which solver is the fastest here?
ves bench --model laplace2d:30x30 -k 8
