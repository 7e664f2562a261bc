// Shares the rows of an image out to all processors: the sum of its pixels, once by the pool and once by hand.

#include <vellcore/vellcore.h>

#include <cstdio>
#include <vector>

namespace {

struct Image {
    int width = 1920, height = 1080;
    std::vector<unsigned char> pixels = std::vector<unsigned char>(size_t(width) * size_t(height));
};

/// The share of the calling thread: a band of rows. Each share writes a sum of its own, so no lock is needed.
void sum_band(void* image_argument, void* sums_argument, void*, void*, void*, void*) {
    const Image& image = *static_cast<Image*>(image_argument);
    const int share = smp_id(), shares = smp_numprocs();
    const int first = image.height * share / shares, last = image.height * (share + 1) / shares;
    long long sum = 0;
    for (int row = first; row < last; ++row)
        for (int x = 0; x < image.width; ++x)
            sum += image.pixels[size_t(row) * size_t(image.width) + size_t(x)];
    static_cast<long long*>(sums_argument)[share] = sum;
}

}  // namespace

int main(int, char** arguments) {
    vl_fast_initialize(arguments[0], /*allocate_heaps*/ false);
    smp_initialize(/*requested*/ 0);

    Image image;
    long long expected = 0;
    for (size_t i = 0; i < image.pixels.size(); ++i)
        expected += image.pixels[i] = static_cast<unsigned char>(i * 7);

    std::vector<long long> sums(static_cast<size_t>(smp_numprocs()));
    smp_exec(sum_band, &image, sums.data());
    long long sum = 0;
    for (const long long part : sums)
        sum += part;
    std::printf("%d shares, sum %lld, %s\n", smp_numprocs(), sum, sum == expected ? "as expected" : "wrong");

    vl_closedown();
    return sum == expected ? 0 : 1;
}
